// When the module is told of the policy again.
#include "refhost/app/policy_watch.h"

#include <gtest/gtest.h>

namespace fenlux::refhost {
namespace {

using Clock = PolicyWatch::Clock;
using std::chrono::milliseconds;

struct Scene {
  bool ready = false;
  Clock::time_point begun = Clock::time_point::min();
  Clock::time_point changed = Clock::time_point::min();
  Clock::time_point read = Clock::time_point::min();
  int notified = 0;
  Clock::time_point now = Clock::time_point(std::chrono::hours(1));
  PolicyWatch watch{{
      .isReady = [this] { return ready; },
      .connectionBegun = [this] { return begun; },
      .policyChanged = [this] { return changed; },
      .policyRead = [this] { return read; },
      .notify = [this] { ++notified; },
  }};

  void Look(milliseconds later) {
    now += later;
    watch.Look(now);
  }
  void Connect() {
    begun = now;
    ready = true;
  }
};

TEST(PolicyWatch, SaysNothingWhileNoConnectionIsReady) {
  Scene scene;
  for (int look = 0; look < 100; ++look) scene.Look(milliseconds(100));
  EXPECT_EQ(scene.notified, 0);
}

TEST(PolicyWatch, SaysNothingWhereThePolicyIsReadInTime) {
  Scene scene;
  scene.Connect();
  scene.Look(milliseconds(100));
  scene.Look(milliseconds(800));
  scene.read = scene.now;
  for (int look = 0; look < 100; ++look) scene.Look(milliseconds(100));
  EXPECT_EQ(scene.notified, 0);
}

TEST(PolicyWatch, TellsTheModuleOfAChangeThatItMissedWhileItAppliedThePolicyBefore) {
  Scene scene;
  scene.Connect();
  scene.now += milliseconds(10);
  scene.read = scene.now;
  scene.now += milliseconds(10);
  scene.changed = scene.now;
  scene.Look(milliseconds(0));
  scene.Look(milliseconds(1000));
  EXPECT_EQ(scene.notified, 1);
  scene.read = scene.now;
  for (int look = 0; look < 100; ++look) scene.Look(milliseconds(100));
  EXPECT_EQ(scene.notified, 1);
}

TEST(PolicyWatch, TellsTheModuleOnceASecondUntilThePolicyIsRead) {
  Scene scene;
  scene.Connect();
  scene.Look(milliseconds(0));
  scene.Look(milliseconds(999));
  EXPECT_EQ(scene.notified, 0);
  scene.Look(milliseconds(1));
  EXPECT_EQ(scene.notified, 1);
  scene.Look(milliseconds(999));
  EXPECT_EQ(scene.notified, 1);
  scene.Look(milliseconds(1));
  EXPECT_EQ(scene.notified, 2);
  scene.read = scene.now;
  scene.Look(milliseconds(5000));
  EXPECT_EQ(scene.notified, 2);
  EXPECT_EQ(scene.watch.Reminders(), 2U);
}

TEST(PolicyWatch, APolicyReadForTheConnectionBeforeDoesNotCount) {
  Scene scene;
  scene.Connect();
  scene.read = scene.now + milliseconds(10);
  scene.Look(milliseconds(100));
  scene.ready = false;
  scene.Look(milliseconds(5000));
  scene.Connect();
  scene.Look(milliseconds(100));
  scene.Look(milliseconds(1000));
  EXPECT_EQ(scene.notified, 1);
}

TEST(PolicyWatch, ItsPatienceBeginsAnewWithEachConnection) {
  Scene scene;
  scene.Connect();
  scene.Look(milliseconds(100));
  scene.Look(milliseconds(900));
  scene.ready = false;
  scene.Look(milliseconds(50));
  scene.Connect();
  scene.Look(milliseconds(60));
  scene.Look(milliseconds(900));
  EXPECT_EQ(scene.notified, 0);
  scene.Look(milliseconds(100));
  EXPECT_EQ(scene.notified, 1);
}

}  // namespace
}  // namespace fenlux::refhost
