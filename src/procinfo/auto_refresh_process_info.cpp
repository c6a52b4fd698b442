// The refresh thread: pauses and refreshes the cache in turn until it is stopped.
#include "procinfo/auto_refresh_process_info.h"

#include <chrono>
#include <mutex>

#include "common/clock.h"
#include "common/detached_thread.h"
#include "common/guarded.h"
#include "common/log_codes.h"
#include "common/required.h"
#include "host/cfg_ex.h"
#include "host/global_context.h"
#include "host/utility.h"
#include "host/win_work.h"

namespace fenlux {

CAutoRefreshProcessInfo::CAutoRefreshProcessInfo(const std::shared_ptr<CGlobalContext>& globalContext)
    : context(globalContext),
      utility(context->GetUtility()),
      work(context->GetWinWork()),
      cfgex(Required(context->GetCfgEx(), "[arpi] Bad cfgex init!")) {}

void CAutoRefreshProcessInfo::Start() {
  RefreshAll();  // publishes the first map, so that lookups have one to search
  StartDetachedThread([self = shared_from_this()] { self->RefreshThreadMain(); });
  started = true;  // stopRequested is never reset: after StopRefresh, the new thread ends at once
}

void CAutoRefreshProcessInfo::StopRefresh() {
  stopRequested = true;
  started = false;
}

void CAutoRefreshProcessInfo::RefreshThreadMain() {
  const std::unique_lock<std::mutex> only(threadMutex.Native(), std::try_to_lock);
  if (!only) return;
  WriteLog("Auto refresh process info thread start...");
  std::chrono::milliseconds interval = std::chrono::seconds(1);  // until the host returns one
  while (!stopRequested) {
    Quietly([&] { interval = std::chrono::milliseconds(cfgex->GetRefreshInterval()); });
    clock::PauseUntilWallClock(interval);
    Quietly([this] { RefreshAll(); });
  }
  WriteLog("Auto refresh process info thread exit.");
}

void CAutoRefreshProcessInfo::WriteLog(const char* line) noexcept {
  Quietly([&] {
    if (utility) utility->WriteLog(kLogCode, line, kProcessInfoLogCategory);
  });
}

}  // namespace fenlux
