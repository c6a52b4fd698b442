// The host's queries to the operating system, and the creation of port clients.
#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <thread>

#include "host/win_work.h"

namespace fenlux::refhost {

class ConfigTable;

// Paths for system images by the names that the module uses, for machines without such images. A process of such an
// image counts as a system process.
using SystemImages = std::map<std::string, boost::filesystem::path>;

// Reads [system_images].
SystemImages ReadSystemImages(const ConfigTable& table);

// Creates a port client. The arguments are those of CWinWork::CreatePortClient.
using PortClientMaker = std::function<std::shared_ptr<CPortClient>(
    const std::string& portName, const std::shared_ptr<CBuf>& connectContext, std::uint32_t maxMessageSize,
    const NotificationHandler& handler, std::uint32_t portValue)>;

class WorkService final : public CWinWork {
 public:
  using Clock = std::chrono::steady_clock;

  WorkService(SystemImages images, PortClientMaker portClientMaker);

  // When the module last requested a port client; the clock's minimum if it has not. Any thread.
  Clock::time_point LastConnectionStart() const {
    return Clock::time_point(Clock::duration(lastConnectionStart.load()));
  }

  // How many processes the module's cache had after its last complete refresh: a refresh lists the running processes
  // and then queries each cached one. 0 if there was none. Any thread.
  std::uint64_t CachedProcesses() const { return cachedProcesses.load(std::memory_order_relaxed); }

  boost::filesystem::path& SystemPath(boost::filesystem::path& out, const std::string& imageName) override;
  // kSystemSession for a process of a configured system image, otherwise the login session (see ProcessSession).
  std::uint32_t QueryProcessValue(std::uint32_t processId, std::uint32_t reserved) override;
  // The path of the process's image.
  std::wstring& GetProcessWideText(std::wstring& out, std::uint32_t processIdOrPathSource,
                                   std::uint32_t reserved) override;
  // The command line of the process.
  std::string& GetProcessNarrowText(std::string& out, std::uint32_t processId, std::uint32_t reserved) override;
  std::shared_ptr<CPortClient>& CreatePortClient(std::shared_ptr<CPortClient>& out, const std::string& portName,
                                                 const std::shared_ptr<CBuf>& connectContext,
                                                 std::uint32_t maxMessageSize, const NotificationHandler& handler,
                                                 std::uint32_t portValue) override;
  std::string& GetIdentityText(std::string& out, const void* identity) override;
  std::shared_ptr<ProcessIdList>& FindProcessesByImage(std::shared_ptr<ProcessIdList>& out,
                                                       const boost::filesystem::path& image,
                                                       std::uint32_t reserved) override;
  std::shared_ptr<ProcessIdSet>& GetRunningProcessIds(std::shared_ptr<ProcessIdSet>& out,
                                                      std::uint32_t reserved) override;

 private:
  const SystemImages systemImages;
  const PortClientMaker makePortClient;
  std::atomic<Clock::rep> lastConnectionStart{Clock::duration::min().count()};
  // The thread that refreshes the module's cache, and how many processes it has queried since it last listed them.
  std::atomic<std::thread::id> refresher{};
  std::atomic<std::uint64_t> refreshedProcesses{0};
  std::atomic<std::uint64_t> cachedProcesses{0};
};

}  // namespace fenlux::refhost
