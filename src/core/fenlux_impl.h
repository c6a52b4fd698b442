// The module object: the host's services, the current driver interface, and the two workers.
//
// The connection worker makes driver interfaces and runs them one after the other; the policy worker gives each the
// host's monitoring policy. Both are detached, never joined, and hold the object by plain pointer: it outlives them
// because its process-wide handle is never released while they run. `driverInteractMutex` guards the handle of the
// current driver interface. It is held while that interface is cleared and shut down, never while it runs, and so may
// be taken before the driver interface's own locks, but never after them.
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

// Base of what produces texts for users.
class CLanguage {
 protected:
  ~CLanguage() = default;
};

class CFenluxImpl final : public global_cls_base<CFenluxImpl>, public CFenlux, public CLanguage {
 public:
  // When each past connection attempt ended, oldest first. Owned by the connection worker.
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

  // Returns the current driver interface if it is ready and not stopped, else an empty handle. Any thread.
  std::shared_ptr<CWinDriverInteract> GetReadyDriverInteract();
  // The bodies of the worker threads. The connection worker returns only if another one is running; the policy worker
  // never returns. Neither throws.
  void ConnectionWorker();
  void PolicyWorker();

  // Records the end of an attempt and logs an alert for the tenth within ten minutes. Throws what the host throws.
  // Connection worker.
  void RecordConnectionFailure(FailureTimes& failureTimes);

 private:
  // Shuts the current driver interface down; with `clear`, clears its monitor objects first. Tries both, then rethrows
  // the first exception. Keeps the handle until the connection worker replaces it. Any thread.
  void StopCurrentInteract(bool clear);
  [[noreturn]] void RunAttempts(FailureTimes& failureTimes);
  void RunOneAttempt();
  void ApplyPolicy(CWinDriverInteract& interact);
  void SendPolicy(CWinDriverInteract& interact, const MonitorPolicy& policy);
  void AddPolicyObject(CWinDriverInteract& interact, CPolicyObject& object);
  void LogSkipped(const char* text, const boost::filesystem::path& path);
  std::string Narrow(const boost::filesystem::path& path);

  Mutex workMutex;  // held by the running connection worker
  std::shared_ptr<CGlobalContext> context;
  std::shared_ptr<CUtility> utility;
  std::shared_ptr<CCfg> cfg;
  std::shared_ptr<CLog> log;
  std::shared_ptr<CCfgEx> cfgex;
  std::shared_ptr<CWinDriverInteract> driverInteract FENLUX_GUARDED_BY(driverInteractMutex);
  Mutex policyMutex;
  std::condition_variable policyWakeup;
  Mutex driverInteractMutex;
  std::uint32_t monitorObjectType;  // of the policy: records::kObjectType1 or kObjectType2
};

}  // namespace fenlux
