// The one place where the module meets time. The shipped module links the system's clock; tests link a manual one, so
// that no test sleeps.
#pragma once

#include <chrono>

namespace fenlux::clock {

// The monotonic time that failures are counted in. Any thread.
std::chrono::steady_clock::time_point Now();

// Blocks the calling worker for a fixed pause.
void Pause(std::chrono::milliseconds duration);

// Blocks the calling worker until the wall clock reads now plus `interval`; a clock that is set back meanwhile
// lengthens the pause. An interval of 0 only yields.
void PauseUntilWallClock(std::chrono::milliseconds interval);

}  // namespace fenlux::clock
