// Wakes the threads that wait for the driver's state to change or for the emulator to stop.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>

#include "common/mutex.h"

namespace fenlux::refhost {

// Any thread. A condition is evaluated under the signal's lock and may take other locks of the driver; Wake and Stop
// therefore must not be called while holding one that a condition takes.
class WakeSignal {
 public:
  using Clock = std::chrono::steady_clock;

  // Permanent: every current and future wait returns.
  void Stop() {
    stopping = true;
    Wake();
  }
  bool Stopping() const { return stopping; }

  void Wake() {
    // A thread between testing its condition and waiting holds the lock. Taking it once ensures that it is notified.
    { const MutexLock lock(mutex); }
    changed.notify_all();
  }

  // Waits until the condition holds; false if the emulator stops.
  template <typename Condition>
  bool WaitUntil(const Condition& condition) {
    MutexLock lock(mutex);
    while (!stopping && !condition()) lock.Wait(changed);
    return !stopping;
  }
  // Like WaitUntil, with a time limit; false if the emulator stops or the condition does not hold in time.
  template <typename Condition>
  bool WaitFor(std::chrono::nanoseconds limit, const Condition& condition) {
    const auto deadline = Clock::now() + limit;
    MutexLock lock(mutex);
    for (;;) {
      if (condition()) return true;
      if (stopping || Clock::now() >= deadline) return false;
      lock.WaitUntil(changed, deadline);
    }
  }
  // False if the emulator stops before the time has passed.
  bool Sleep(std::chrono::nanoseconds duration) {
    WaitFor(duration, [this] { return Stopping(); });
    return !stopping;
  }

 private:
  std::atomic<bool> stopping{false};
  Mutex mutex;
  std::condition_variable changed;
};

}  // namespace fenlux::refhost
