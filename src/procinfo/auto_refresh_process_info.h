// The process cache: one record per process id, filled by lookups and kept current by its own thread.
//
// Owned by the driver interface and, while it runs, by the refresh thread. A refresh replaces the published map as a
// whole; a lookup that misses inserts into it in place. `mapLock` guards the map's handle and that insertion. No host
// service is called while it is held.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <unordered_map>
#include <vector>

#include "common/mutex.h"
#include "common/striped_mutex.h"
#include "procinfo/single_process_info.h"

namespace fenlux {

class CArpProcess;
class CArpRecord;
class CCfgEx;
class CGlobalContext;
class CUtility;
class CWinWork;

// Hashed, because every notification searches it. Only a refresh needs an order, and sorts the ids itself.
using ProcessInfoMap = std::unordered_map<std::uint32_t, std::shared_ptr<const CSingleProcessInfo>>;

class CAutoRefreshProcessInfo : public std::enable_shared_from_this<CAutoRefreshProcessInfo> {
 public:
  // Throws std::runtime_error ("[arpi] Bad cfgex init!") if the extended configuration is missing.
  explicit CAutoRefreshProcessInfo(const std::shared_ptr<CGlobalContext>& globalContext);

  // Refreshes once on the calling thread, then starts the refresh thread and enables FillEventProcessInfo. Throws what
  // the refresh throws, and std::system_error if the thread cannot be made. Connection worker.
  void Start();
  // Disables FillEventProcessInfo at once and ends the refresh thread within one interval and one pass. One-way on
  // purpose: a later Start enables FillEventProcessInfo again, but its thread ends at once. Takes no lock. Any thread.
  void StopRefresh();

  // Copies what is known about the record's process into the record and its process part; does nothing unless started.
  // `identity` points to the notification's account identity block, or is null. Throws what the host throws. Delivery
  // threads.
  void FillEventProcessInfo(CArpRecord& record, CArpProcess& process, const std::uint8_t* identity);

  // Returns what is known about a process, from the cache unless it is bypassed, or an empty handle if the host does
  // not know the process. Throws what the host throws. Any thread.
  std::shared_ptr<const CSingleProcessInfo> GetProcessInfo(std::uint32_t processId);
  // Queries the host and caches the result unless another thread was faster; returns the result in any case.
  std::shared_ptr<const CSingleProcessInfo> FetchAndCache(std::uint32_t processId);
  // Queries the host about a process; does not touch the cache.
  std::shared_ptr<const CSingleProcessInfo> BuildRecord(std::uint32_t processId);
  // Queries the host about every cached process again, drops those that ended, and publishes the result.
  void RefreshAll();

  // The body of the refresh thread. Returns at once if another one is running; never throws.
  void RefreshThreadMain();

 private:
  CWinWork& Work() const;
  // In ascending order.
  std::vector<std::uint32_t> CachedProcessIds();
  void WriteLog(const char* line) noexcept;

  std::shared_ptr<CGlobalContext> context;
  std::shared_ptr<CUtility> utility;
  std::shared_ptr<CWinWork> work;
  std::shared_ptr<CCfgEx> cfgex;
  StripedMutex mapLock;
  std::shared_ptr<ProcessInfoMap> processes FENLUX_GUARDED_BY(mapLock);  // empty until the first refresh
  Mutex threadMutex;                                                     // held by the running refresh thread
  std::atomic<bool> stopRequested{false};
  std::atomic<bool> started{false};
};

}  // namespace fenlux
