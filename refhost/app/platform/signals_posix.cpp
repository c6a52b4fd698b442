// SIGINT and SIGTERM stop, SIGHUP reloads, SIGUSR1 asks for the summary. They stay blocked and are picked up by
// waiting, so no code ever runs inside a signal handler.
#include <signal.h>

#include <ctime>

#include "refhost/app/platform/signals.h"

namespace fenlux::refhost {
namespace {

sigset_t HeldSignals() {
  sigset_t signals;
  ::sigemptyset(&signals);
  for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGUSR1}) ::sigaddset(&signals, signal);
  return signals;
}

}  // namespace

void HoldSignals() {
  const sigset_t signals = HeldSignals();
  ::pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  // A reader of our output or of the control socket that goes away must not end the host.
  ::signal(SIGPIPE, SIG_IGN);
}

HostSignal WaitForSignal(std::chrono::milliseconds limit) {
  const sigset_t signals = HeldSignals();
  const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(limit);
  const timespec timeout{static_cast<std::time_t>(seconds.count()),
                         static_cast<long>(std::chrono::nanoseconds(limit - seconds).count())};
  switch (::sigtimedwait(&signals, nullptr, &timeout)) {
    case SIGINT:
    case SIGTERM:
      return HostSignal::kStop;
    case SIGHUP:
      return HostSignal::kReload;
    case SIGUSR1:
      return HostSignal::kSummary;
    default:
      return HostSignal::kNone;
  }
}

std::string SignalHelp() {
  return "SIGINT and SIGTERM end the run, SIGHUP reads the configuration again, SIGUSR1 prints the summary so far.\n";
}

}  // namespace fenlux::refhost
