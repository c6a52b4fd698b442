// The time limits at the end of a run: all steps together stay within the promised time.
#include "refhost/app/stop_deadline.h"

#include <gtest/gtest.h>

namespace fenlux::refhost {
namespace {

using std::chrono::milliseconds;
using Clock = StopDeadline::Clock;

constexpr milliseconds kPollInterval{100};  // of the loop that sees the signal

TEST(StopDeadline, GivesTheOutputsTheTimeThatEarlierStepsDidNotUse) {
  const Clock::time_point stopped{};
  const StopDeadline deadline(stopped);
  EXPECT_EQ(deadline.OutputTimeout(stopped), kStopTimeout);
  EXPECT_EQ(deadline.OutputTimeout(stopped + milliseconds(1300)), kStopTimeout - milliseconds(1300));
  EXPECT_EQ(deadline.OutputTimeout(stopped + kStopTimeout), kMinOutputTimeout);
  EXPECT_EQ(deadline.OutputTimeout(stopped + std::chrono::hours(1)), kMinOutputTimeout);
}

TEST(StopDeadline, ARunEndsWithinThreeSecondsEvenIfEveryStepUsesAllItsTime) {
  EXPECT_EQ(kEndTimeout, milliseconds(3000));
  const Clock::time_point stopped{};
  const StopDeadline deadline(stopped);
  Clock::time_point now = stopped + kControlStopTimeout + 2 * kModuleStopTimeout;
  EXPECT_LT(now, stopped + kStopTimeout) << "the outputs get more than their minimum time";
  for (int output = 0; output < kOutputsAtEnd; ++output) now += deadline.OutputTimeout(now);
  EXPECT_LE(now - stopped + kPollInterval, kEndTimeout);
}

}  // namespace
}  // namespace fenlux::refhost
