// Implements CWinWork with the platform's process queries.
#include "refhost/services/processes/work_service.h"

#include <algorithm>
#include <boost/filesystem/operations.hpp>

#include "refhost/base/config/config_reader.h"
#include "refhost/base/text/utf_text.h"
#include "refhost/services/events/identity_text.h"
#include "refhost/services/processes/process_queries.h"

namespace fenlux::refhost {

SystemImages ReadSystemImages(const ConfigTable& table) {
  SystemImages images;
  for (const std::string& name : table.Keys()) images.emplace(name, table.Path(name));
  return images;
}

WorkService::WorkService(SystemImages images, PortClientMaker portClientMaker)
    : systemImages([&] {
        // Processes report the real paths of their images.
        for (auto& [name, path] : images) {
          boost::system::error_code error;
          const boost::filesystem::path real = boost::filesystem::canonical(path, error);
          if (!error) path = real;
        }
        return std::move(images);
      }()),
      makePortClient(std::move(portClientMaker)) {}

boost::filesystem::path& WorkService::SystemPath(boost::filesystem::path& out, const std::string& imageName) {
  const auto configured = systemImages.find(imageName);
  return out = configured == systemImages.end() ? SystemImagePath(imageName) : configured->second;
}

std::uint32_t WorkService::QueryProcessValue(std::uint32_t processId, std::uint32_t /*reserved*/) {
  if (!ProcessRuns(processId)) return kUnknownProcess;
  if (refresher.load(std::memory_order_relaxed) == std::this_thread::get_id()) {
    refreshedProcesses.fetch_add(1, std::memory_order_relaxed);
  }
  if (!systemImages.empty()) {
    const std::string image = NarrowFromWide(ProcessImagePath(processId));
    const auto isImage = [&](const auto& configured) { return configured.second.string() == image; };
    if (std::ranges::any_of(systemImages, isImage)) return kSystemSession;
  }
  return ProcessSession(processId);
}

std::wstring& WorkService::GetProcessWideText(std::wstring& out, std::uint32_t processIdOrPathSource,
                                              std::uint32_t /*reserved*/) {
  return out = ProcessImagePath(processIdOrPathSource);
}

std::string& WorkService::GetProcessNarrowText(std::string& out, std::uint32_t processId, std::uint32_t /*reserved*/) {
  return out = ProcessCommandLine(processId);
}

std::shared_ptr<CPortClient>& WorkService::CreatePortClient(
    std::shared_ptr<CPortClient>& out, const std::string& portName, const std::shared_ptr<CBuf>& connectContext,
    std::uint32_t maxMessageSize, const NotificationHandler& handler, std::uint32_t portValue) {
  lastConnectionStart.store(Clock::now().time_since_epoch().count());
  return out = makePortClient(portName, connectContext, maxMessageSize, handler, portValue);
}

std::string& WorkService::GetIdentityText(std::string& out, const void* identity) {
  const auto* bytes = static_cast<const std::uint8_t*>(identity);
  return out = IdentityText(std::span<const std::uint8_t, kIdentityBlockSize>(bytes, kIdentityBlockSize));
}

std::shared_ptr<ProcessIdList>& WorkService::FindProcessesByImage(std::shared_ptr<ProcessIdList>& out,
                                                                  const boost::filesystem::path& image,
                                                                  std::uint32_t /*reserved*/) {
  return out = std::make_shared<ProcessIdList>(ProcessesOfImage(image));
}

std::shared_ptr<ProcessIdSet>& WorkService::GetRunningProcessIds(std::shared_ptr<ProcessIdSet>& out,
                                                                 std::uint32_t /*reserved*/) {
  refresher.store(std::this_thread::get_id(), std::memory_order_relaxed);
  cachedProcesses.store(refreshedProcesses.exchange(0, std::memory_order_relaxed), std::memory_order_relaxed);
  return out = std::make_shared<ProcessIdSet>(RunningProcesses());
}

}  // namespace fenlux::refhost
