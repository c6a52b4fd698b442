// Construction of the module, the host's five operations, and the current driver interface.
#include "core/fenlux_impl.h"

#include <stdexcept>

#include "common/detached_thread.h"
#include "common/guarded.h"
#include "common/required.h"

namespace fenlux {

CFenluxImpl::CFenluxImpl(const std::shared_ptr<CGlobalContext>& globalContext)
    : global_cls_base(globalContext),
      context(globalContext),
      utility(Required(context->GetUtility(), "bad utility init!")),
      cfg(Required(context->GetCfg(), "bad cfg init!")),
      log(Required(context->GetLog(), "bad log init!")),
      cfgex(Required(context->GetCfgEx(), "bad cfgex init!")),
      monitorObjectType(cfgex->GetMonitorObjectFlag() ? records::kObjectType1 : records::kObjectType2) {}

CFenluxImpl::~CFenluxImpl() {
  Quietly([this] { StopCurrentInteract(true); });
}

void CFenluxImpl::StartWork() {
  StopCurrentInteract(true);
  if (!cfgex->IsEnabled()) return;
  StartDetachedThread([this] { ConnectionWorker(); });
  // A second StartWork adds a second policy worker on purpose; the second connection worker ends at once.
  StartDetachedThread([this] { PolicyWorker(); });
}

void CFenluxImpl::StopWork(bool clear) { StopCurrentInteract(clear); }

void CFenluxImpl::NotifyPolicyChanged() {
  const MutexLock lock(policyMutex);
  policyWakeup.notify_all();
}

std::uint32_t CFenluxImpl::GetDriverPortValue() {
  const auto interact = GetReadyDriverInteract();
  if (!interact) throw std::runtime_error("DCI,Driver Interact NOT ready.");
  return interact->PortValue();
}

std::shared_ptr<CKDIBase> CFenluxImpl::GetDriverInteract() { return GetReadyDriverInteract(); }

std::shared_ptr<CWinDriverInteract> CFenluxImpl::GetReadyDriverInteract() {
  const MutexLock lock(driverInteractMutex);
  const bool usable = driverInteract && driverInteract->IsDriverReady() && !driverInteract->IsStopRequested();
  return usable ? driverInteract : nullptr;
}

void CFenluxImpl::StopCurrentInteract(bool clear) {
  const MutexLock lock(driverInteractMutex);
  if (!driverInteract) return;
  CWinDriverInteract& interact = *driverInteract;
  AllSteps steps;
  if (clear) steps.Try([&] { interact.ClearMonitorObjects(static_cast<int>(monitorObjectType)); });
  steps.Try([&] { interact.Shutdown(); });
  steps.Finish();
}

}  // namespace fenlux
