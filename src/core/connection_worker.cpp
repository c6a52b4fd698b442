// The connection worker: keeps the module connected for the life of the process, with one driver interface after the
// other. Owns the list of failure times; shares the driver interface that it runs with the module.
#include <mutex>

#include "common/clock.h"
#include "common/exception_report.h"
#include "common/guarded.h"
#include "common/log_codes.h"
#include "core/fenlux_impl.h"

namespace fenlux {
namespace {

constexpr std::chrono::seconds kRestartDelay(5);
constexpr std::chrono::seconds kFailureWindow(600);
constexpr std::size_t kFailureThreshold = 10;

}  // namespace

void CFenluxImpl::ConnectionWorker() {
  FailureTimes failureTimes;
  for (;;) {
    std::string report;
    try {
      const std::unique_lock<std::mutex> only(workMutex.Native(), std::try_to_lock);
      if (!only) {
        log->LogProblem(kLogCode, Translate("[dci,tiwk] There is another thread doing work. We should exit."));
        return;
      }
      RunAttempts(failureTimes);
    } catch (...) {
      Quietly([&] {
        report = ReportCurrentExceptionByKind("dci,tiwk-2", [this](const std::string& text) {
          std::string converted;
          return utility->ConvertText(converted, text);
        });
      });
    }
    Quietly([&] {
      if (!report.empty()) log->LogProblem(kLogCode, report);
    });
    Quietly([&] { RecordConnectionFailure(failureTimes); });
    clock::Pause(kRestartDelay);
  }
}

void CFenluxImpl::RunAttempts(FailureTimes& failureTimes) {
  for (;;) {
    std::string report;
    try {
      RunOneAttempt();
    } catch (...) {
      report = ReportCurrentException("dci,tiwk", "dci");
    }
    if (!report.empty()) log->LogProblem(kLogCode, report);
    StopCurrentInteract(false);
    NotifyPolicyChanged();
    RecordConnectionFailure(failureTimes);
    clock::Pause(kRestartDelay);
  }
}

void CFenluxImpl::RunOneAttempt() {
  const auto interact = std::make_shared<CWinDriverInteract>(context);
  {
    auto previous = interact;
    const MutexLock lock(driverInteractMutex);
    driverInteract.swap(previous);
  }
  interact->RunDriverConnection();
}

void CFenluxImpl::RecordConnectionFailure(FailureTimes& failureTimes) {
  const auto now = clock::Now();
  failureTimes.push_back(now);
  failureTimes.remove_if([now](const auto& time) {
    return std::chrono::duration_cast<std::chrono::seconds>(now - time) >= kFailureWindow;
  });
  if (failureTimes.size() < kFailureThreshold) return;
  log->LogAlert(kLogCode, Translate("Connection with driver failed for a long time!"));
  failureTimes.clear();
}

}  // namespace fenlux
