// The policy worker: waits for a ready driver interface, gives it the host's monitoring policy, and waits for the next
// notification.
#include <boost/filesystem/operations.hpp>
#include <stdexcept>

#include "common/clock.h"
#include "common/exception_report.h"
#include "common/guarded.h"
#include "common/log_codes.h"
#include "common/wide_text.h"
#include "core/fenlux_impl.h"

namespace fenlux {
namespace {

constexpr int kReadinessPolls = 600;
constexpr std::chrono::milliseconds kPollInterval(100);
constexpr std::chrono::seconds kErrorPause(1);

}  // namespace

void CFenluxImpl::PolicyWorker() {
  for (;;) {
    try {
      for (int polls = 0;;) {
        if (polls >= kReadinessPolls) throw std::runtime_error("DCI,DI not ready.");
        ++polls;
        if (const auto interact = GetReadyDriverInteract()) {
          polls = 0;
          ApplyPolicy(*interact);
        } else {
          clock::Pause(kPollInterval);
        }
      }
    } catch (...) {
      Quietly([this] { log->LogProblem(kLogCode, ReportCurrentException("DCI,rc")); });
    }
    clock::Pause(kErrorPause);
  }
}

void CFenluxImpl::ApplyPolicy(CWinDriverInteract& interact) {
  {
    std::shared_ptr<MonitorPolicy> policy;
    cfgex->GetMonitorPolicy(policy);
    if (policy) {
      SendPolicy(interact, *policy);
    } else {
      log->LogNotice(kLogCode, Translate("[Driver]Monitor policy is empty-2."));
    }
  }
  interact.SendDriverConfig();
  // Waits without a predicate on purpose: a notification that arrives while the policy is applied is lost, and a
  // spurious wakeup applies the policy again.
  MutexLock lock(policyMutex);
  lock.Wait(policyWakeup);
}

void CFenluxImpl::SendPolicy(CWinDriverInteract& interact, const MonitorPolicy& policy) {
  if (policy.empty()) log->LogNotice(kLogCode, Translate("[dci,trc]Monitor policy is empty-1."));
  for (const auto& object : policy) {
    if (object) AddPolicyObject(interact, *object);
  }
  interact.SendMonitorObjects(static_cast<int>(monitorObjectType));
  interact.DumpDriverDebugInfo();
}

void CFenluxImpl::AddPolicyObject(CWinDriverInteract& interact, CPolicyObject& object) {
  const boost::filesystem::path path = object.GetMonitorPath();
  const auto type = boost::filesystem::status(path).type();  // throws if the path exists but cannot be read
  if (type == boost::filesystem::status_error || type == boost::filesystem::file_not_found) {
    LogSkipped("[dci,trc][Skip]Monitor object NOT exist. [obj]=", path);
  } else if (!utility->TestPath(path)) {
    LogSkipped("[dci,trc][Skip]Object is NOT directory(Only accept monitor dir).[Object]=", path);
  } else {
    interact.AddMonitorObject(false, Narrow(path).c_str(), static_cast<int>(monitorObjectType));
  }
}

void CFenluxImpl::LogSkipped(const char* text, const boost::filesystem::path& path) {
  std::string line = Translate(text);
  line += Narrow(path);
  log->LogProblem(kLogCode, line);
}

std::string CFenluxImpl::Narrow(const boost::filesystem::path& path) {
  std::string narrow;
  return utility->ToNarrowString(narrow, WideFromPath(path));
}

}  // namespace fenlux
