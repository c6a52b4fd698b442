// How long the end of a run may take, and how its steps share that time.
#pragma once

#include <algorithm>
#include <chrono>

namespace fenlux::refhost {

// A run ends within this time after the signal, whatever its outputs, its configuration and the driver do. A call into
// the module that exceeds its own limit extends it.
inline constexpr std::chrono::milliseconds kEndTimeout{3000};

// The shares of an operation of the control channel, and of the module, which is waited for twice.
inline constexpr std::chrono::milliseconds kControlStopTimeout{300};
inline constexpr std::chrono::milliseconds kModuleStopTimeout{500};
// For each output even after the deadline: an output that is not stuck needs less.
inline constexpr std::chrono::milliseconds kMinOutputTimeout{100};
// The log, standard output, and an error on standard error.
inline constexpr int kOutputsAtEnd = 3;
// The rest of kEndTimeout allows for a busy machine, and for the loop to notice the signal.
inline constexpr std::chrono::milliseconds kStopTimeout{2300};

// The time left for the outputs at the end. Not thread-safe.
class StopDeadline {
 public:
  using Clock = std::chrono::steady_clock;

  explicit StopDeadline(Clock::time_point stopped) : deadline(stopped + kStopTimeout) {}

  // For the next output.
  std::chrono::milliseconds OutputTimeout(Clock::time_point now) const {
    return std::max(std::chrono::duration_cast<std::chrono::milliseconds>(deadline - now), kMinOutputTimeout);
  }

 private:
  const Clock::time_point deadline;
};

}  // namespace fenlux::refhost
