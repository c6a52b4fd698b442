// Lookups and the refresh pass. The host is always queried outside the map's lock.
#include <algorithm>
#include <stdexcept>
#include <utility>
#include <vector>

#include "host/arp_record.h"
#include "host/cfg_ex.h"
#include "host/win_work.h"
#include "procinfo/auto_refresh_process_info.h"

namespace fenlux {
namespace {

// How many processes a new map has room for: half as many again, and some. If lookups add more than that before the
// next refresh, the map grows under its lock, and other lookups wait.
std::size_t RoomFor(std::size_t processes) { return processes + processes / 2 + 1024; }

}  // namespace

CWinWork& CAutoRefreshProcessInfo::Work() const {
  if (!work) throw std::runtime_error("[arpi] Bad win_work!");
  return *work;
}

std::shared_ptr<const CSingleProcessInfo> CAutoRefreshProcessInfo::BuildRecord(std::uint32_t processId) {
  const std::uint32_t sessionId = Work().QueryProcessValue(processId, 0);
  if (sessionId == kUnknownProcess) return {};
  auto info = std::make_shared<CSingleProcessInfo>();
  info->sessionId = sessionId;
  work->GetProcessNarrowText(info->narrowInfo, processId, 0);
  work->GetProcessWideText(info->wideInfo, processId, 0);
  return info;
}

std::shared_ptr<const CSingleProcessInfo> CAutoRefreshProcessInfo::GetProcessInfo(std::uint32_t processId) {
  if (cfgex->IsCacheBypassed()) return BuildRecord(processId);
  {
    const ReaderLock lock(mapLock);
    if (processes) {
      const auto found = processes->find(processId);
      if (found != processes->end()) return found->second;
    }
  }
  return FetchAndCache(processId);
}

std::shared_ptr<const CSingleProcessInfo> CAutoRefreshProcessInfo::FetchAndCache(std::uint32_t processId) {
  auto info = BuildRecord(processId);
  if (!info) return info;
  const WriterLock lock(mapLock);
  if (processes) processes->try_emplace(processId, info);
  return info;
}

void CAutoRefreshProcessInfo::FillEventProcessInfo(CArpRecord& record, CArpProcess& process,
                                                   const std::uint8_t* identity) {
  if (!started) return;
  const auto info = GetProcessInfo(static_cast<std::uint32_t>(process.GetProcessId()));
  if (info) {
    process.SetSessionId(info->sessionId);
    process.SetNarrowInfo(info->narrowInfo);
    record.SetWideInfo(info->wideInfo);
  }
  if (cfgex->IsIdentityTextAdded() && identity != nullptr) {
    std::string text;
    Work().GetIdentityText(text, identity);
    process.SetIdentityText(text);
  }
}

std::vector<std::uint32_t> CAutoRefreshProcessInfo::CachedProcessIds() {
  std::vector<std::uint32_t> processIds;
  {
    const SlowReaderLock lock(mapLock);
    if (!processes) return processIds;
    processIds.reserve(processes->size());
    for (const auto& [processId, info] : *processes) processIds.push_back(processId);
  }
  std::sort(processIds.begin(), processIds.end());
  return processIds;
}

void CAutoRefreshProcessInfo::RefreshAll() {
  auto fresh = std::make_shared<ProcessInfoMap>();
  const std::vector<std::uint32_t> cached = CachedProcessIds();
  fresh->reserve(RoomFor(cached.size()));
  if (!cached.empty()) {
    std::shared_ptr<ProcessIdSet> running;
    Work().GetRunningProcessIds(running, 0);
    for (const std::uint32_t processId : cached) {
      const bool isRunning = running && running->contains(processId);
      if (auto info = isRunning ? BuildRecord(processId) : nullptr) {
        fresh->try_emplace(processId, std::move(info));
      }
    }
  }
  // Drops entries added since the ids were read; the next lookup fetches them again.
  const WriterLock lock(mapLock);
  processes.swap(fresh);
}

}  // namespace fenlux
