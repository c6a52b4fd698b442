// The time limits at the end of a run: all steps together stay within the promised time.
#include "refhost/app/stop_deadline.h"

#include <gtest/gtest.h>

namespace fenlux::refhost {
namespace {

using std::chrono::milliseconds;
using Clock = StopDeadline::Clock;

constexpr milliseconds kPollInterval{100};  // of the loop that sees the signal
constexpr StopShares kShares{kDefaultStopTimeout};

TEST(StopDeadline, GivesTheOutputsTheTimeThatEarlierStepsDidNotUse) {
  const Clock::time_point stopped{};
  const StopDeadline deadline(stopped, kShares);
  EXPECT_EQ(deadline.OutputTimeout(stopped), kShares.outputs);
  EXPECT_EQ(deadline.OutputTimeout(stopped + milliseconds(1300)), kShares.outputs - milliseconds(1300));
  EXPECT_EQ(deadline.OutputTimeout(stopped + kShares.outputs), kShares.minOutput);
  EXPECT_EQ(deadline.OutputTimeout(stopped + std::chrono::hours(1)), kShares.minOutput);
}

TEST(StopDeadline, KeepsHalfOfTheTimeForTheOutputsAfterTheLog) {
  const Clock::time_point stopped{};
  const StopDeadline deadline(stopped, kShares);
  const Clock::time_point logged = stopped + deadline.LogTimeout(stopped);
  EXPECT_EQ(deadline.LogTimeout(stopped), kShares.outputs / 2);
  EXPECT_EQ(deadline.OutputTimeout(logged), kShares.outputs / 2);
  EXPECT_EQ(deadline.LogTimeout(stopped + kShares.outputs), kShares.minOutput);
}

TEST(StopDeadline, ARunEndsInTimeEvenIfEveryStepUsesAllItsTime) {
  EXPECT_EQ(kDefaultStopTimeout, milliseconds(3000));
  for (const milliseconds total : {kMinStopTimeout, kDefaultStopTimeout, milliseconds(60'000)}) {
    const StopShares shares(total);
    const Clock::time_point stopped{};
    const StopDeadline deadline(stopped, shares);
    Clock::time_point now = stopped + shares.control + 2 * shares.module;
    EXPECT_LT(now, stopped + shares.outputs) << "unless the recording is stuck too, the outputs get more";
    now += shares.recording + deadline.LogTimeout(now + shares.recording);
    for (int output = 1; output < kOutputsAtEnd; ++output) now += deadline.OutputTimeout(now);
    EXPECT_LE(now - stopped + kPollInterval, total);
  }
}

TEST(StopDeadline, EvenTheShortestStopTimeoutLeavesTimeForEveryStep) {
  const StopShares shares(kMinStopTimeout);
  EXPECT_GT(shares.minOutput, milliseconds(0));
  EXPECT_GT(shares.control, milliseconds(0));
}

}  // namespace
}  // namespace fenlux::refhost
