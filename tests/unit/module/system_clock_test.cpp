// The clock that ships, beside the clocks of the system that it tells: the one program of the tests that links it.
#include <gtest/gtest.h>

#include "common/clock.h"

namespace fenlux::testing {

using std::chrono_literals::operator""ms;
using std::chrono_literals::operator""s;
using std::chrono::steady_clock;
using std::chrono::system_clock;

TEST(SystemClock, NowIsTheMonotonicTimeOfTheSystem) {
  for (int i = 0; i < 1000; ++i) {
    const auto before = steady_clock::now();
    const auto now = clock::Now();
    EXPECT_LE(before, now);
    EXPECT_LE(now, steady_clock::now());
  }
}

TEST(SystemClock, APauseIsNeverShorterThanItsMilliseconds) {
  for (const auto duration : {0ms, 1ms, 30ms}) {
    const auto begun = steady_clock::now();
    clock::Pause(duration);
    const auto paused = steady_clock::now() - begun;
    EXPECT_GE(paused, duration);
    EXPECT_LT(paused, 20s) << "as many seconds are more";
  }
}

TEST(SystemClock, AWallClockPauseEndsWhenTheWallClockReadsItsEnd) {
  for (const auto interval : {0ms, 1ms, 30ms}) {
    const auto begun = system_clock::now();
    clock::PauseUntilWallClock(interval);
    const auto ended = system_clock::now();
    EXPECT_GE(ended, begun + interval);
    EXPECT_LT(ended, begun + 20s) << "as many seconds are more";
  }
}

}  // namespace fenlux::testing
