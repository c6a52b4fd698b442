// The wait for a deadline on a wall clock that may be set while the wait lasts.
#pragma once

#include <algorithm>
#include <chrono>

namespace fenlux::clock {

// The longest single sleep, and therefore how late a wait may end after the clock was set forward.
inline constexpr std::chrono::milliseconds kMaxWallClockSleep(200);

// Returns once `now()` has reached its first value plus `interval`. Sleeps in short slices and reads the clock after
// each: one sleep until the deadline would not notice that the clock is set forward, because the standard library
// turns the deadline into a duration when the sleep begins. `now` returns a time point of the wall clock, `sleep`
// blocks for the duration it is given.
template <class Now, class Sleep>
void WaitForWallClock(std::chrono::milliseconds interval, Now&& now, Sleep&& sleep) {
  auto time = now();
  const auto deadline = time + interval;
  while (time < deadline) {
    sleep(std::min<decltype(deadline - time)>(deadline - time, kMaxWallClockSleep));
    time = now();
  }
}

}  // namespace fenlux::clock
