// The time limits at the end of a run: all steps together stay within the promised time.
#include "refhost/app/stop_deadline.h"

#include <gtest/gtest.h>

namespace fenlux::refhost {
namespace {

using std::chrono::milliseconds;
using Clock = StopDeadline::Clock;

constexpr milliseconds kPollInterval{100};  // of the loop that sees the signal
constexpr StopTimeouts kTimeouts{kDefaultStopTimeout};

TEST(StopDeadline, GivesTheOutputsTheTimeThatEarlierStepsDidNotUse) {
  const Clock::time_point stopped{};
  const StopDeadline deadline(stopped, kTimeouts);
  EXPECT_EQ(deadline.OutputTimeout(stopped), kTimeouts.outputs);
  EXPECT_EQ(deadline.OutputTimeout(stopped + milliseconds(1300)), kTimeouts.outputs - milliseconds(1300));
  EXPECT_EQ(deadline.OutputTimeout(stopped + kTimeouts.outputs), kTimeouts.minOutput);
  EXPECT_EQ(deadline.OutputTimeout(stopped + std::chrono::hours(1)), kTimeouts.minOutput);
}

TEST(StopDeadline, KeepsHalfOfTheTimeForTheOutputsAfterTheLog) {
  const Clock::time_point stopped{};
  const StopDeadline deadline(stopped, kTimeouts);
  const Clock::time_point logged = stopped + deadline.LogTimeout(stopped);
  EXPECT_EQ(deadline.LogTimeout(stopped), kTimeouts.outputs / 2);
  EXPECT_EQ(deadline.OutputTimeout(logged), kTimeouts.outputs / 2);
  EXPECT_EQ(deadline.LogTimeout(stopped + kTimeouts.outputs), kTimeouts.minOutput);
}

TEST(StopDeadline, ARunEndsInTimeEvenIfEveryStepUsesAllItsTime) {
  EXPECT_EQ(kDefaultStopTimeout, milliseconds(3000));
  for (const milliseconds total : {kMinStopTimeout, kDefaultStopTimeout, milliseconds(60'000)}) {
    const StopTimeouts timeouts(total);
    const Clock::time_point stopped{};
    const StopDeadline deadline(stopped, timeouts);
    Clock::time_point now = stopped + timeouts.control + 2 * timeouts.module;
    EXPECT_LT(now, stopped + timeouts.outputs) << "unless the recording is stuck too, the outputs get more";
    now += timeouts.recording + deadline.LogTimeout(now + timeouts.recording);
    for (int output = 1; output < kOutputsAtEnd; ++output) now += deadline.OutputTimeout(now);
    EXPECT_LE(now - stopped + kPollInterval, total);
  }
}

TEST(StopDeadline, EvenTheShortestStopTimeoutLeavesTimeForEveryStep) {
  const StopTimeouts timeouts(kMinStopTimeout);
  EXPECT_GT(timeouts.minOutput, milliseconds(0));
  EXPECT_GT(timeouts.control, milliseconds(0));
}

}  // namespace
}  // namespace fenlux::refhost
