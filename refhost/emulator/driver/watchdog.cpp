// Checks the pending answers whenever one may be overdue.
#include "refhost/emulator/driver/watchdog.h"

#include <algorithm>

#include "refhost/base/start_thread.h"

namespace fenlux::refhost {

void Watchdog::Start() {
  thread = StartThread("the emulator's watchdog", [this] { Run(); });
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
  // A notification delivered right after a round is due one full deadline later, so two rounds per deadline suffice.
  const auto round = std::max<std::chrono::nanoseconds>(deadline / 2, std::chrono::milliseconds(1));
  for (;;) {
    const auto now = std::chrono::steady_clock::now();
    const auto next = answers.TakeOverdue(now);
    const bool again = source.OnWatchdog();
    const auto until = next ? std::min(*next, now + round) : now + round;
    MutexLock lock(mutex);
    while (!stopping && !again && lock.WaitUntil(wake, until)) {
    }
    if (stopping) return;
  }
}

}  // namespace fenlux::refhost
