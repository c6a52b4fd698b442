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

// Process ids, in the order in which the module tries them.
using ProcessIdList = std::vector<std::uint32_t>;
// A set of process ids.
using ProcessIdSet = std::set<std::uint64_t>;

// CWinWork::QueryProcessValue of a process of the system's own session.
inline constexpr std::uint32_t kSystemSession = 0;
// CWinWork::QueryProcessValue of a process that the host does not know.
inline constexpr std::uint32_t kUnknownProcess = 0xFFFFFFFF;

// The module passes 0 as `reserved`. Operations with an `out` argument write their result into it and return a
// reference to it. The listed threads may call concurrently. One object for the life of the host.
class CWinWork {
 public:
  // Returns the full path of a system image, given relative to the system directory ("system32\csrss.exe"). Connection
  // worker.
  virtual boost::filesystem::path& SystemPath(boost::filesystem::path& out, const std::string& imageName) = 0;
  // Returns the session of a process: kSystemSession for the system's own, kUnknownProcess if the process is unknown.
  // The module distinguishes these two and carries every other value to CArpProcess::SetSessionId. Connection worker,
  // refresh thread, delivery threads.
  virtual std::uint32_t QueryProcessValue(std::uint32_t processId, std::uint32_t reserved) = 0;
  // Returns the wide text of a process, which becomes CArpRecord::SetWideInfo, or the path that belongs to the value of
  // CArpRecord::GetPathSource, which becomes CArpRecord::SetPath. The call does not say which of the two is wanted, so
  // both numbers must come from one range: a host that uses process ids as path sources returns the path of the
  // process's image for both. An empty text if there is none. Refresh thread, delivery threads.
  virtual std::wstring& GetProcessWideText(std::wstring& out, std::uint32_t processIdOrPathSource,
                                           std::uint32_t reserved) = 0;
  // Returns the narrow text of a process, which becomes CArpProcess::SetNarrowInfo; an empty text if there is none.
  // What it says is the host's choice (the reference host: the command line). Refresh thread, delivery threads.
  virtual std::string& GetProcessNarrowText(std::string& out, std::uint32_t processId, std::uint32_t reserved) = 0;
  // Creates a client of the driver's port in `out`, without connecting it, and returns `out`. It opens the port
  // `portName` (narrow text of CUtility::ToNarrowString; always the port of docs/protocol.md), passes the 16 bytes of
  // `connectContext` to the driver unchanged, and accepts messages of up to `maxMessageSize` bytes, always 196764.
  // Every message goes to `handler`. `portValue` is CCfgEx::GetPortValue. A null client ends the attempt. Connection
  // worker, once per connection.
  virtual std::shared_ptr<CPortClient>& CreatePortClient(std::shared_ptr<CPortClient>& out, const std::string& portName,
                                                         const std::shared_ptr<CBuf>& connectContext,
                                                         std::uint32_t maxMessageSize,
                                                         const NotificationHandler& handler,
                                                         std::uint32_t portValue) = 0;
  // Returns the text of an account identity block, which becomes CArpProcess::SetIdentityText. `identity` points to its
  // first byte inside the notification, valid during the call; 64 bytes may be read. What the block contains is an
  // agreement between the agent and the driver (the reference host reads a security identifier in binary form and pads
  // it with zeros). Delivery threads.
  virtual std::string& GetIdentityText(std::string& out, const void* identity) = 0;
  // Returns the ids of the running processes of an image, given as SystemPath returned it; an empty handle means none.
  // The module registers the first one in kSystemSession with the driver. Connection worker.
  virtual std::shared_ptr<ProcessIdList>& FindProcessesByImage(std::shared_ptr<ProcessIdList>& out,
                                                               const boost::filesystem::path& image,
                                                               std::uint32_t reserved) = 0;
  // Returns the ids of all running processes; an empty handle means none, which empties the process cache. Connection
  // worker, refresh thread.
  virtual std::shared_ptr<ProcessIdSet>& GetRunningProcessIds(std::shared_ptr<ProcessIdSet>& out,
                                                              std::uint32_t reserved) = 0;

 protected:
  ~CWinWork() = default;
};

}  // namespace fenlux
