// Time as the operating system reports it.
#include <thread>

#include "common/clock.h"
#include "common/wall_clock_pause.h"

namespace fenlux::clock {

std::chrono::steady_clock::time_point Now() { return std::chrono::steady_clock::now(); }

void Pause(std::chrono::milliseconds duration) { std::this_thread::sleep_for(duration); }

void PauseUntilWallClock(std::chrono::milliseconds interval) {
  if (interval.count() == 0) {
    std::this_thread::yield();
    return;
  }
  WaitForWallClock(
      interval, [] { return std::chrono::system_clock::now(); },
      [](auto duration) { std::this_thread::sleep_for(duration); });
}

}  // namespace fenlux::clock
