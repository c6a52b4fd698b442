// The module's real clock, compared with the system's clocks. Only this test program links it.
#include <gtest/gtest.h>

#include <vector>

#include "common/clock.h"
#include "common/wall_clock_pause.h"

namespace fenlux::testing {

using std::chrono_literals::operator""h;
using std::chrono_literals::operator""ms;
using std::chrono_literals::operator""s;
using std::chrono::steady_clock;
using std::chrono::system_clock;

TEST(SystemClock, NowIsTheSystemsMonotonicTime) {
  for (int i = 0; i < 1000; ++i) {
    const auto before = steady_clock::now();
    const auto now = clock::Now();
    EXPECT_LE(before, now);
    EXPECT_LE(now, steady_clock::now());
  }
}

TEST(SystemClock, APauseIsNotShorterThanItsDuration) {
  for (const auto duration : {0ms, 1ms, 30ms}) {
    const auto begun = steady_clock::now();
    clock::Pause(duration);
    const auto paused = steady_clock::now() - begun;
    EXPECT_GE(paused, duration);
    EXPECT_LT(paused, 20s) << "the duration was read as seconds";
  }
}

TEST(SystemClock, AWallClockPauseEndsWhenTheWallClockReachesItsDeadline) {
  for (const auto interval : {0ms, 1ms, 30ms}) {
    const auto begun = system_clock::now();
    clock::PauseUntilWallClock(interval);
    const auto ended = system_clock::now();
    EXPECT_GE(ended, begun + interval);
    EXPECT_LT(ended, begun + 20s) << "the duration was read as seconds";
  }
}

// Setting the system clock needs privileges and disturbs the machine, so the tests above check the real clock only for
// pauses during which nobody sets it. The tests below set their own clock.
class WallClockPause : public ::testing::Test {
 protected:
  static constexpr auto kInterval = 600'000ms;

  // Pauses for kInterval; `change` is added to the clock once `when` has elapsed. Returns how long the pause took.
  std::chrono::milliseconds PauseWithChange(std::chrono::milliseconds when, std::chrono::milliseconds change) {
    std::chrono::milliseconds passed(0);
    bool changed = false;
    clock::WaitForWallClock(
        kInterval, [&] { return system_clock::time_point(wall); },
        [&](system_clock::duration duration) {
          EXPECT_GT(duration, 0ms);
          EXPECT_LE(duration, clock::kMaxWallClockSleep);
          const auto slept = std::chrono::duration_cast<std::chrono::milliseconds>(duration);
          passed += slept;
          wall += slept;
          if (changed || passed < when) return;
          changed = true;
          wall += change;
        });
    return passed;
  }

  std::chrono::milliseconds wall{1'700'000'000'000};
};

TEST_F(WallClockPause, LastsItsIntervalWhileNobodySetsTheClock) { EXPECT_EQ(PauseWithChange(0ms, 0ms), kInterval); }

TEST_F(WallClockPause, EndsAtOnceWhenTheClockIsSetPastTheDeadline) {
  EXPECT_EQ(PauseWithChange(1000ms, kInterval), 1000ms);
  EXPECT_EQ(PauseWithChange(1000ms, 24h), 1000ms);
}

TEST_F(WallClockPause, IsShortenedWhenTheClockIsSetForward) {
  EXPECT_EQ(PauseWithChange(1000ms, 60s), kInterval - 60s);
}

TEST_F(WallClockPause, IsLengthenedWhenTheClockIsSetBack) { EXPECT_EQ(PauseWithChange(1000ms, -60s), kInterval + 60s); }

TEST_F(WallClockPause, SleepsExactlyTheRestOfAShortInterval) {
  std::vector<system_clock::duration> sleeps;
  system_clock::time_point now{};
  clock::WaitForWallClock(
      450ms, [&] { return now; },
      [&](system_clock::duration duration) {
        sleeps.push_back(duration);
        now += duration;
      });
  EXPECT_EQ(sleeps, (std::vector<system_clock::duration>{200ms, 200ms, 50ms}));
}

}  // namespace fenlux::testing
