// Checks the pending answers whenever one may be overdue.
#include "refhost/emulator/driver/watchdog.h"

#include <algorithm>

namespace fenlux::refhost {

void Watchdog::Start() {
  thread = std::thread([this] { Run(); });
}

void Watchdog::Stop() {
  {
    const MutexLock lock(mutex);
    stopping = true;
  }
  wake.notify_all();
  if (thread.joinable()) thread.join();
}

void Watchdog::Run() {
  // A notification delivered right after a round is due a whole deadline later, so two rounds per deadline miss none.
  const auto round = std::max<std::chrono::nanoseconds>(deadline / 2, std::chrono::milliseconds(1));
  for (;;) {
    const auto now = std::chrono::steady_clock::now();
    const auto next = answers.TakeOverdue(now);
    source.OnWatchdog();
    const auto until = next ? std::min(*next, now + round) : now + round;
    MutexLock lock(mutex);
    while (!stopping && lock.WaitUntil(wake, until)) {
    }
    if (stopping) return;
  }
}

}  // namespace fenlux::refhost
