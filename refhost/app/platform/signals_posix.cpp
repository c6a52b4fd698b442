// SIGINT and SIGTERM stop the host, SIGHUP reloads, SIGUSR1 prints the summary. The signals stay blocked and are
// received with sigtimedwait, so no code runs in a signal handler.
#include <signal.h>

#include <ctime>

#include "refhost/app/platform/signals.h"

namespace fenlux::refhost {
namespace {

sigset_t BlockedSignals() {
  sigset_t signals;
  ::sigemptyset(&signals);
  for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGUSR1}) ::sigaddset(&signals, signal);
  return signals;
}

}  // namespace

void BlockSignals() {
  const sigset_t signals = BlockedSignals();
  ::pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  // The host must survive a reader that closes our output or the control socket.
  ::signal(SIGPIPE, SIG_IGN);
}

HostSignal WaitForSignal(std::chrono::milliseconds timeout) {
  const sigset_t signals = BlockedSignals();
  const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(timeout);
  const timespec limit{static_cast<std::time_t>(seconds.count()),
                       static_cast<long>(std::chrono::nanoseconds(timeout - seconds).count())};
  switch (::sigtimedwait(&signals, nullptr, &limit)) {
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
  return "SIGINT and SIGTERM stop the host, SIGHUP reloads the configuration, SIGUSR1 prints the summary so far.\n";
}

}  // namespace fenlux::refhost
