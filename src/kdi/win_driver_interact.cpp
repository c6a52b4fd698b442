// Construction, stop and shutdown of the driver interface, and its constant answers.
#include "kdi/win_driver_interact.h"

#include <stdexcept>

#include "common/guarded.h"
#include "common/required.h"

namespace fenlux {
namespace {

constexpr std::uint32_t kImplementationCode = 7;  // identifies this implementation to the host

}  // namespace

CWinDriverInteract::CWinDriverInteract(const std::shared_ptr<CGlobalContext>& globalContext)
    : CKDIBase(globalContext),
      winWork(Required(context->GetWinWork(), "Bad win_work init!")),
      autoRefresh(std::make_shared<CAutoRefreshProcessInfo>(context)) {}

CWinDriverInteract::~CWinDriverInteract() {
  Quietly([this] { Shutdown(); });
}

void CWinDriverInteract::StopInteract() {
  autoRefresh->StopRefresh();
  stopped = true;  // before `ready`: RunDriverConnection sets `ready` first and then checks `stopped`
  ready = false;
  if (const auto client = portClient.Load()) client->Close();
}

void CWinDriverInteract::Shutdown() {
  AllSteps steps;
  steps.Try([this] { StopInteract(); });
  if (!shutDown.exchange(true)) {
    steps.Try([this] {
      if (recordHandle) recordHandle->Withdraw();
    });
    steps.Try([this] {
      std::shared_ptr<CNetObject> released;
      if (netObject) netObject->Release(released, 0);
    });
  }
  steps.Finish();
}

std::uint32_t CWinDriverInteract::PortValue() const { return portValue; }

bool CWinDriverInteract::IsDriverReady() { return ready; }

bool CWinDriverInteract::IsStopRequested() { return stopped; }

bool CWinDriverInteract::QueryOptionalFeature() { return false; }

bool CWinDriverInteract::QuerySupportedFeature() { return true; }

std::uint32_t CWinDriverInteract::GetImplementationCode() { return kImplementationCode; }

void CWinDriverInteract::OnKernelData(std::uint64_t /*data*/) {}

void CWinDriverInteract::TriggerLtrkd() { throw std::runtime_error("[wdi,ltrkd]Windows MUST NOT trigger here!"); }

}  // namespace fenlux
