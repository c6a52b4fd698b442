// The module's one object: the host's services, the current driver interface, and the two workers.
//
// The connection worker makes driver interfaces and runs them one after the other; the policy worker hands each the
// host's monitoring policy. Both are detached, never joined, and hold the object by plain pointer: it has to outlive
// them, and does so by living as long as its process-wide handle. `driverInteractMutex` guards the handle of the
// current driver interface and is held while that interface is cleared and shut down, never while it runs.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <list>
#include <memory>

#include "common/mutex.h"
#include "core/fenlux.h"
#include "core/global_cls_base.h"
#include "host/host.h"
#include "kdi/win_driver_interact.h"

namespace fenlux {

// The base of everything that speaks to users.
class CLanguage {
 protected:
  ~CLanguage() = default;
};

class CFenluxImpl final : public global_cls_base<CFenluxImpl>, public CFenlux, public CLanguage {
 public:
  // When each ended connection attempt ended, oldest first. Belongs to the connection worker.
  using FailureTimes = std::list<std::chrono::steady_clock::time_point>;

  // Throws std::runtime_error naming what is missing: "[cl]Bad global class!", or the first required service.
  explicit CFenluxImpl(const std::shared_ptr<CGlobalContext>& globalContext);
  ~CFenluxImpl();
  CFenluxImpl(const CFenluxImpl&) = delete;
  CFenluxImpl& operator=(const CFenluxImpl&) = delete;

  void StartWork() override;
  void StopWork(bool clear) override;
  void NotifyPolicyChanged() override;
  std::uint32_t GetDriverPortValue() override;
  std::shared_ptr<CKDIBase> GetDriverInteract() override;

  // The current driver interface while it is ready and not told to stop; else an empty handle. Any thread.
  std::shared_ptr<CWinDriverInteract> GetReadyDriverInteract();
  // Shuts the current driver interface down, having cleared its monitor objects where `clear` says so; the handle
  // stays, the connection worker replaces it. Both are tried; the first failure goes on. Any thread.
  void StopCurrentInteract(bool clear);

  // The workers' bodies. The connection worker returns only where another one is at work already; the policy worker
  // never returns. Neither throws.
  void ConnectionWorker();
  void PolicyWorker();

  // Counts an ended attempt, and raises the alert at the tenth within ten minutes. Throws what the host throws.
  void RecordConnectionFailure(FailureTimes& failureTimes);

 private:
  [[noreturn]] void RunAttempts(FailureTimes& failureTimes);
  void RunOneAttempt();
  void ApplyPolicy(CWinDriverInteract& interact);
  void SendPolicy(CWinDriverInteract& interact, const MonitorPolicy& policy);
  void AddPolicyObject(CWinDriverInteract& interact, CPolicyObject& object);
  void LogSkipped(const char* text, const boost::filesystem::path& path);
  std::string Narrow(const boost::filesystem::path& path);

  Mutex workMutex;  // held by the active connection worker for as long as it runs
  std::shared_ptr<CGlobalContext> context;
  std::shared_ptr<CUtility> utility;
  std::shared_ptr<CCfg> cfg;
  std::shared_ptr<CLog> log;
  std::shared_ptr<CCfgEx> cfgex;
  std::shared_ptr<CWinDriverInteract> driverInteract FENLUX_GUARDED_BY(driverInteractMutex);
  Mutex policyMutex;
  std::condition_variable policyWakeup;
  Mutex driverInteractMutex;
  std::uint32_t monitorObjectType;  // 1 or 2: the type of the policy's monitor objects
};

}  // namespace fenlux
