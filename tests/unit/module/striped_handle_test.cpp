// The weak handles with one reference count per group of threads.
#include "common/striped_handle.h"

#include <atomic>
#include <memory>
#include <optional>
#include <thread>
#include <vector>

#include "tests/unit/module/module_test.h"

namespace fenlux::testing {
namespace {

// A number that its destructor clears, so that a use after the end is seen.
struct Number {
  ~Number() { value = 0; }
  std::atomic<int> value{7};
};

struct Handles {
  std::shared_ptr<Number> object = std::make_shared<Number>();
  std::optional<StripedHandle<Number>> striped{object};
  WeakStripedHandle<Number> weak{*striped};
};

}  // namespace

TEST(StripedHandle, IsLockedWhileItLives) {
  Handles handles;
  const auto locked = handles.weak.Lock();
  EXPECT_EQ(locked.get(), handles.object.get());
}

TEST(StripedHandle, KeepsTheObjectAlive) {
  Handles handles;
  const std::weak_ptr<Number> object = handles.object;
  handles.object.reset();
  EXPECT_FALSE(object.expired());
  handles.striped.reset();
  EXPECT_TRUE(object.expired());
}

TEST(StripedHandle, CannotBeLockedAfterItsEnd) {
  Handles handles;
  handles.striped.reset();
  EXPECT_FALSE(handles.weak.Lock());
  EXPECT_EQ(handles.object.use_count(), 1) << "the weak handles keep the object alive";
}

TEST(StripedHandle, ALockedHandleOutlivesIt) {
  Handles handles;
  auto locked = handles.weak.Lock();
  const std::weak_ptr<Number> object = handles.object;
  handles.object.reset();
  handles.striped.reset();
  EXPECT_EQ(locked->value, 7);
  locked.reset();
  EXPECT_TRUE(object.expired());
}

TEST(StripedHandle, OfNothingIsEmpty) {
  const StripedHandle<Number> striped{std::shared_ptr<Number>()};
  EXPECT_FALSE(WeakStripedHandle<Number>(striped).Lock());
}

TEST(StripedHandle, ThreadsOfDifferentGroupsHaveDifferentCounts) {
  Handles handles;
  const auto locked = handles.weak.Lock();
  ASSERT_EQ(locked.use_count(), 2) << "that of the striped handle and this one";
  constexpr int kThreads = 32;  // at the same time, so that their ids differ
  std::atomic<int> lockedHere{0};
  std::atomic<bool> otherCount{false};
  std::vector<std::thread> threads;
  for (int thread = 0; thread < kThreads; ++thread) {
    threads.emplace_back([&] {
      const auto mine = handles.weak.Lock();
      if (mine.owner_before(locked) || locked.owner_before(mine)) otherCount = true;
      ++lockedHere;
      while (lockedHere < kThreads) std::this_thread::yield();
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_TRUE(otherCount) << "every thread is of the same group";
}

TEST(StripedHandle, ManyThreadsLockItWhileItEnds) {
  Handles handles;
  const std::weak_ptr<Number> object = handles.object;
  constexpr int kThreads = 8;
  std::atomic<int> running{0};
  std::atomic<int> wrong{0};
  std::atomic<bool> ended{false};
  std::vector<std::thread> threads;
  for (int thread = 0; thread < kThreads; ++thread) {
    threads.emplace_back([&] {
      ++running;
      while (!ended) {
        const auto locked = handles.weak.Lock();
        if (locked && locked->value != 7) ++wrong;
      }
    });
  }
  while (running < kThreads) std::this_thread::yield();
  handles.object.reset();
  handles.striped.reset();
  ended = true;  // threads of one group may keep the object alive for each other until here
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(wrong, 0);
  EXPECT_TRUE(object.expired());
  EXPECT_FALSE(handles.weak.Lock());
}

}  // namespace fenlux::testing
