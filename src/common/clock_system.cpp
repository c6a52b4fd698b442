// Time as the operating system tells it.
#include <thread>

#include "common/clock.h"

namespace fenlux::clock {

std::chrono::steady_clock::time_point Now() { return std::chrono::steady_clock::now(); }

void Pause(std::chrono::milliseconds duration) { std::this_thread::sleep_for(duration); }

void PauseUntilWallClock(std::chrono::milliseconds interval) {
  if (interval.count() == 0) {
    std::this_thread::yield();
    return;
  }
  std::this_thread::sleep_until(std::chrono::system_clock::now() + interval);
}

}  // namespace fenlux::clock
