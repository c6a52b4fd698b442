// Queries of the operating system, and creation of port clients.
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

// Special values of CWinWork::QueryProcessValue.
inline constexpr std::uint32_t kSystemSession = 0;
inline constexpr std::uint32_t kUnknownProcess = 0xFFFFFFFF;

// The module passes 0 as `reserved`. Operations with an `out` argument write their result into it and return a
// reference to it. The listed threads may call concurrently.
class CWinWork {
 public:
  // Returns the full path of a system image, given relative to the system directory ("system32\csrss.exe"). Connection
  // worker.
  virtual boost::filesystem::path& SystemPath(boost::filesystem::path& out, const std::string& imageName) = 0;
  // Returns the session of a process: kSystemSession for the system's own, kUnknownProcess if the process is unknown.
  // Connection worker, refresh thread, delivery threads.
  virtual std::uint32_t QueryProcessValue(std::uint32_t processId, std::uint32_t reserved) = 0;
  // Returns the wide text of a process, or the path that belongs to the value of CArpRecord::GetPathSource. Refresh
  // thread, delivery threads.
  virtual std::wstring& GetProcessWideText(std::wstring& out, std::uint32_t processIdOrPathSource,
                                           std::uint32_t reserved) = 0;
  // Returns the narrow text of a process. Refresh thread, delivery threads.
  virtual std::string& GetProcessNarrowText(std::string& out, std::uint32_t processId, std::uint32_t reserved) = 0;
  // Creates a client of the driver's port without connecting it. It passes `connectContext` to the driver unchanged and
  // accepts messages of up to `maxMessageSize` bytes. `portValue` is CCfgEx::GetPortValue. Connection worker, once per
  // connection.
  virtual std::shared_ptr<CPortClient>& CreatePortClient(std::shared_ptr<CPortClient>& out, const std::string& portName,
                                                         const std::shared_ptr<CBuf>& connectContext,
                                                         std::uint32_t maxMessageSize,
                                                         const NotificationHandler& handler,
                                                         std::uint32_t portValue) = 0;
  // Returns the text of an account identity block. `identity` points to its first byte inside the notification; at most
  // 64 bytes may be read. Delivery threads.
  virtual std::string& GetIdentityText(std::string& out, const void* identity) = 0;
  // Returns the ids of the running processes of an image; an empty handle means none. Connection worker.
  virtual std::shared_ptr<ProcessIdList>& FindProcessesByImage(std::shared_ptr<ProcessIdList>& out,
                                                               const boost::filesystem::path& image,
                                                               std::uint32_t reserved) = 0;
  // Returns the ids of all running processes; an empty handle means none. Connection worker, refresh thread.
  virtual std::shared_ptr<ProcessIdSet>& GetRunningProcessIds(std::shared_ptr<ProcessIdSet>& out,
                                                              std::uint32_t reserved) = 0;

 protected:
  ~CWinWork() = default;
};

}  // namespace fenlux
