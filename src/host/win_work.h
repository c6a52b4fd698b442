// The host's queries of the operating system, and the maker of port clients.
#pragma once

#include <boost/filesystem/path.hpp>
#include <cstdint>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "host/port_client.h"

namespace fenlux {

class CBuf;

using ProcessIdList = std::vector<std::uint32_t>;
using ProcessIdSet = std::set<std::uint64_t>;

// Values of CWinWork::QueryProcessValue.
inline constexpr std::uint32_t kSystemSession = 0;
inline constexpr std::uint32_t kUnknownProcess = 0xFFFFFFFF;

// The trailing number that many operations take is reserved; the module passes 0. Operations that give text or a
// handle write it into the caller's `out` and return a reference to it. All of them: several threads at once.
class CWinWork {
 public:
  // The full path of a system image that is named relative to the system directory ("system32\csrss.exe"). Connection
  // worker.
  virtual boost::filesystem::path& SystemPath(boost::filesystem::path& out, const std::string& imageName) = 0;
  // The session of a process: 0 for the system's own, 0xFFFFFFFF where the process is unknown. Connection worker,
  // refresh thread, delivery threads.
  virtual std::uint32_t QueryProcessValue(std::uint32_t processId, std::uint32_t reserved) = 0;
  // The wide text of a process, by its id; also the path that a record's path source stands for. Refresh thread,
  // delivery threads.
  virtual std::wstring& GetProcessWideText(std::wstring& out, std::uint32_t processIdOrPathSource,
                                           std::uint32_t reserved) = 0;
  // The narrow text of a process. Refresh thread, delivery threads.
  virtual std::string& GetProcessNarrowText(std::string& out, std::uint32_t processId, std::uint32_t reserved) = 0;
  // Makes, and does not connect, a client of the driver's port. `connectContext` goes to the driver unchanged;
  // messages of up to `maxMessageSize` bytes must be received whole. Connection worker, once per connection.
  virtual std::shared_ptr<CPortClient>& CreatePortClient(std::shared_ptr<CPortClient>& out, const std::string& portName,
                                                         const std::shared_ptr<CBuf>& connectContext,
                                                         std::uint32_t maxMessageSize,
                                                         const NotificationHandler& handler,
                                                         std::uint32_t portValue) = 0;
  // The text of an account identity block. `identity` points at its first byte inside the notification; the block is
  // at most 64 bytes long. Delivery threads.
  virtual std::string& GetIdentityText(std::string& out, const void* identity) = 0;
  // The ids of the running processes of an image; an empty handle means none. Connection worker.
  virtual std::shared_ptr<ProcessIdList>& FindProcessesByImage(std::shared_ptr<ProcessIdList>& out,
                                                               const boost::filesystem::path& image,
                                                               std::uint32_t reserved) = 0;
  // The ids of all running processes; an empty handle means none. Connection worker, refresh thread.
  virtual std::shared_ptr<ProcessIdSet>& GetRunningProcessIds(std::shared_ptr<ProcessIdSet>& out,
                                                              std::uint32_t reserved) = 0;

 protected:
  ~CWinWork() = default;
};

}  // namespace fenlux
