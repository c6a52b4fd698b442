// When the watch notifies the module.
#include "refhost/app/policy_watch.h"

#include <gtest/gtest.h>

namespace fenlux::refhost {
namespace {

using Clock = PolicyWatch::Clock;
using std::chrono::milliseconds;

struct Fixture {
  bool ready = false;
  Clock::time_point started = Clock::time_point::min();
  Clock::time_point changed = Clock::time_point::min();
  Clock::time_point read = Clock::time_point::min();
  int notified = 0;
  Clock::time_point now = Clock::time_point(std::chrono::hours(1));
  PolicyWatch watch{{
      .isReady = [this] { return ready; },
      .connectionStarted = [this] { return started; },
      .policyChanged = [this] { return changed; },
      .policyRead = [this] { return read; },
      .notify = [this] { ++notified; },
  }};

  void PollAfter(milliseconds pause) {
    now += pause;
    watch.Poll(now);
  }
  void Connect() {
    started = now;
    ready = true;
  }
};

TEST(PolicyWatch, DoesNotNotifyWhileNoConnectionIsReady) {
  Fixture fixture;
  for (int poll = 0; poll < 100; ++poll) fixture.PollAfter(milliseconds(100));
  EXPECT_EQ(fixture.notified, 0);
}

TEST(PolicyWatch, DoesNotNotifyIfThePolicyIsReadInTime) {
  Fixture fixture;
  fixture.Connect();
  fixture.PollAfter(milliseconds(100));
  fixture.PollAfter(milliseconds(800));
  fixture.read = fixture.now;
  for (int poll = 0; poll < 100; ++poll) fixture.PollAfter(milliseconds(100));
  EXPECT_EQ(fixture.notified, 0);
}

TEST(PolicyWatch, NotifiesAgainAfterAChangeThatTheModuleMissed) {
  Fixture fixture;
  fixture.Connect();
  fixture.now += milliseconds(10);
  fixture.read = fixture.now;
  fixture.now += milliseconds(10);
  fixture.changed = fixture.now;
  fixture.PollAfter(milliseconds(0));
  fixture.PollAfter(milliseconds(1000));
  EXPECT_EQ(fixture.notified, 1);
  fixture.read = fixture.now;
  for (int poll = 0; poll < 100; ++poll) fixture.PollAfter(milliseconds(100));
  EXPECT_EQ(fixture.notified, 1);
}

TEST(PolicyWatch, NotifiesOnceASecondUntilThePolicyIsRead) {
  Fixture fixture;
  fixture.Connect();
  fixture.PollAfter(milliseconds(0));
  fixture.PollAfter(milliseconds(999));
  EXPECT_EQ(fixture.notified, 0);
  fixture.PollAfter(milliseconds(1));
  EXPECT_EQ(fixture.notified, 1);
  fixture.PollAfter(milliseconds(999));
  EXPECT_EQ(fixture.notified, 1);
  fixture.PollAfter(milliseconds(1));
  EXPECT_EQ(fixture.notified, 2);
  fixture.read = fixture.now;
  fixture.PollAfter(milliseconds(5000));
  EXPECT_EQ(fixture.notified, 2);
  EXPECT_EQ(fixture.watch.NotificationCount(), 2U);
}

TEST(PolicyWatch, IgnoresAPolicyReadForThePreviousConnection) {
  Fixture fixture;
  fixture.Connect();
  fixture.read = fixture.now + milliseconds(10);
  fixture.PollAfter(milliseconds(100));
  fixture.ready = false;
  fixture.PollAfter(milliseconds(5000));
  fixture.Connect();
  fixture.PollAfter(milliseconds(100));
  fixture.PollAfter(milliseconds(1000));
  EXPECT_EQ(fixture.notified, 1);
}

TEST(PolicyWatch, RestartsTheTimeoutWithEachConnection) {
  Fixture fixture;
  fixture.Connect();
  fixture.PollAfter(milliseconds(100));
  fixture.PollAfter(milliseconds(900));
  fixture.ready = false;
  fixture.PollAfter(milliseconds(50));
  fixture.Connect();
  fixture.PollAfter(milliseconds(60));
  fixture.PollAfter(milliseconds(900));
  EXPECT_EQ(fixture.notified, 0);
  fixture.PollAfter(milliseconds(100));
  EXPECT_EQ(fixture.notified, 1);
}

}  // namespace
}  // namespace fenlux::refhost
