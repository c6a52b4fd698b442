// The process cache: one record per process id, filled by look-ups and kept current by a thread of its own.
//
// Owned by the driver interface and, while it runs, by its refresh thread. The published map is replaced as a whole by
// a refresh; only a look-up that misses inserts into it in place. `mapLock` guards the map's handle and that insertion,
// and no host service is called while it is held.
#pragma once

#include <atomic>
#include <boost/thread/shared_mutex.hpp>
#include <cstdint>
#include <map>
#include <memory>

#include "common/mutex.h"
#include "procinfo/single_process_info.h"

namespace fenlux {

class CArpProcess;
class CArpRecord;
class CCfgEx;
class CGlobalContext;
class CUtility;
class CWinWork;

using ProcessInfoMap = std::map<std::uint32_t, std::shared_ptr<const CSingleProcessInfo>>;

class CAutoRefreshProcessInfo : public std::enable_shared_from_this<CAutoRefreshProcessInfo> {
 public:
  // Throws std::runtime_error ("[arpi] Bad cfgex init!") where the extended configuration is missing.
  explicit CAutoRefreshProcessInfo(const std::shared_ptr<CGlobalContext>& globalContext);

  // Runs one refresh pass on the calling thread, then starts the refresh thread and lets notifications be filled.
  // Throws what the pass throws, and std::system_error where the thread cannot be made. Connection worker.
  void Start();
  // Asks the refresh thread to end, within one interval and one pass, and stops the filling at once. One-way on
  // purpose: a later Start fills notifications again, but its thread ends at once. Any thread; takes no lock.
  void StopRefresh();

  // Copies what is known of the record's process into the record and its process part; does nothing unless started.
  // `identity` points at the notification's account identity block, null where it carries none. Throws what the host
  // throws. Delivery threads.
  void FillEventProcessInfo(CArpRecord& record, CArpProcess& process, const std::uint8_t* identity);

  // The record of a process, from the cache where it is allowed and known; empty where the host does not know the
  // process. Any thread.
  std::shared_ptr<const CSingleProcessInfo> GetProcessInfo(std::uint32_t processId);
  // Makes a record and puts it into the cache unless another thread was faster; returns the record just made.
  std::shared_ptr<const CSingleProcessInfo> FetchAndCache(std::uint32_t processId);
  // Asks the host for everything about a process; stores nothing.
  std::shared_ptr<const CSingleProcessInfo> BuildRecord(std::uint32_t processId);
  // One pass: makes the records of running processes anew, drops the others, publishes the result.
  void RefreshAll();

  // The refresh thread's body.
  void RefreshThreadMain();

 private:
  CWinWork& Work() const;
  void WriteLog(const char* line) noexcept;

  std::shared_ptr<CGlobalContext> context;
  std::shared_ptr<CUtility> utility;
  std::shared_ptr<CWinWork> work;
  std::shared_ptr<CCfgEx> cfgex;
  boost::shared_mutex mapLock;
  std::shared_ptr<ProcessInfoMap> processes;  // empty until the first refresh
  Mutex threadMutex;                          // held by the running refresh thread for its whole life
  std::atomic<bool> stopRequested{false};
  std::atomic<bool> started{false};
};

}  // namespace fenlux
