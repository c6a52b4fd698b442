// Time and pauses: the module's only access to a clock. The shipped module links the system clock; tests link a manual
// one, so that no test sleeps.
#pragma once

#include <chrono>

namespace fenlux::clock {

// Monotonic time. Any thread.
std::chrono::steady_clock::time_point Now();

// Blocks the calling worker for `duration`.
void Pause(std::chrono::milliseconds duration);

// Blocks the calling worker until the wall clock reads its current time plus `interval`: setting the clock forward
// shortens the pause, setting it back lengthens it. An interval of 0 only yields.
void PauseUntilWallClock(std::chrono::milliseconds interval);

}  // namespace fenlux::clock
