// How long the end of a run may take, and how its steps share that time.
#pragma once

#include <algorithm>
#include <chrono>

namespace fenlux::refhost {

// How long a run may take to end after the signal, whatever its outputs, its configuration file and the driver do.
// `stop_timeout_ms` overrides it. A call into the module that exceeds its own limit extends it.
inline constexpr std::chrono::milliseconds kDefaultStopTimeout{3000};
inline constexpr std::chrono::milliseconds kMinStopTimeout{1000};

// The log, standard output, and an error on standard error.
inline constexpr int kOutputsAtEnd = 3;

// The timeouts of the steps of a stop that may take `total`. The rest allows for a busy machine, and for the loop to
// notice the signal.
struct StopTimeouts {
  using Milliseconds = std::chrono::milliseconds;

  explicit constexpr StopTimeouts(Milliseconds total)
      : control(total / 10), module(total / 6), recording(total / 3), outputs(total * 23 / 30), minOutput(total / 30) {}

  Milliseconds control;    // for an operation of the control channel
  Milliseconds module;     // for the module, which is waited for twice
  Milliseconds recording;  // for the capture file
  Milliseconds outputs;    // until this time after the signal, an output may use all the time left
  Milliseconds minOutput;  // for each output even after that: an output that is not stuck needs less
};

// The time left for the outputs at the end. Not thread-safe.
class StopDeadline {
 public:
  using Clock = std::chrono::steady_clock;

  StopDeadline(Clock::time_point stopped, const StopTimeouts& stopTimeouts)
      : timeouts(stopTimeouts), deadline(stopped + timeouts.outputs) {}

  // For the log. The other outputs keep half of the time, so that a stuck log leaves time for the summary.
  std::chrono::milliseconds LogTimeout(Clock::time_point now) const {
    return std::max(Left(now) / 2, timeouts.minOutput);
  }
  // For the next output.
  std::chrono::milliseconds OutputTimeout(Clock::time_point now) const {
    return std::max(Left(now), timeouts.minOutput);
  }

 private:
  std::chrono::milliseconds Left(Clock::time_point now) const {
    return std::chrono::duration_cast<std::chrono::milliseconds>(deadline - now);
  }

  const StopTimeouts timeouts;
  const Clock::time_point deadline;
};

}  // namespace fenlux::refhost
