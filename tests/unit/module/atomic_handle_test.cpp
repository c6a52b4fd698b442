// The shared handle that threads read and replace concurrently.
#include "common/atomic_handle.h"

#include <future>
#include <memory>
#include <thread>
#include <utility>
#include <vector>

#include "common/detached_thread.h"
#include "tests/support/test_timeout.h"
#include "tests/unit/module/module_test.h"

namespace fenlux::testing {
namespace {

// A value that uses its handle while it is being destroyed.
class ReentrantValue {
 public:
  explicit ReentrantValue(std::function<void()> action) : onDestruction(std::move(action)) {}
  ~ReentrantValue() { onDestruction(); }
  ReentrantValue(const ReentrantValue&) = delete;
  ReentrantValue& operator=(const ReentrantValue&) = delete;

 private:
  std::function<void()> onDestruction;
};

// Replaces the value in the handle on another thread. False: timed out. The handle must outlive a blocked thread.
template <class T>
bool StoreReturns(const std::shared_ptr<AtomicHandle<T>>& handle, std::shared_ptr<T> replacement) {
  std::promise<void> stored;
  std::future<void> returned = stored.get_future();
  StartDetachedThread([handle, replacement = std::move(replacement), stored = std::move(stored)]() mutable {
    handle->Store(std::move(replacement));
    stored.set_value();
  });
  return returned.wait_for(kTestTimeout) == std::future_status::ready;
}

}  // namespace

TEST(AtomicHandle, IsEmptyUntilAValueIsStored) {
  AtomicHandle<int> handle;
  EXPECT_FALSE(handle.Load());
  handle.Store(std::make_shared<int>(7));
  ASSERT_TRUE(handle.Load());
  EXPECT_EQ(*handle.Load(), 7);
  handle.Store({});
  EXPECT_FALSE(handle.Load());
}

TEST(AtomicHandle, ALoadedValueOutlivesItsReplacement) {
  AtomicHandle<int> handle;
  handle.Store(std::make_shared<int>(1));
  const auto loaded = handle.Load();
  handle.Store(std::make_shared<int>(2));
  EXPECT_EQ(*loaded, 1);
  EXPECT_EQ(loaded.use_count(), 1);
}

TEST(AtomicHandle, ADestructorMayLoadFromTheHandleThatDropsIt) {
  const auto handle = std::make_shared<AtomicHandle<ReentrantValue>>();
  const auto next = std::make_shared<ReentrantValue>([] {});
  std::shared_ptr<ReentrantValue> seen;
  handle->Store(std::make_shared<ReentrantValue>([&seen, raw = handle.get()] { seen = raw->Load(); }));
  ASSERT_TRUE(StoreReturns(handle, next)) << "the old value was destroyed under the handle's lock";
  EXPECT_EQ(seen, next);
}

TEST(AtomicHandle, ADestructorMayStoreIntoTheHandleThatDropsIt) {
  const auto handle = std::make_shared<AtomicHandle<ReentrantValue>>();
  const auto last = std::make_shared<ReentrantValue>([] {});
  handle->Store(std::make_shared<ReentrantValue>([last, raw = handle.get()] { raw->Store(last); }));
  ASSERT_TRUE(StoreReturns(handle, std::make_shared<ReentrantValue>([] {})))
      << "the old value was destroyed under the handle's lock";
  EXPECT_EQ(handle->Load(), last);
}

TEST(AtomicHandle, ReadersSeeWholeValuesWhileAWriterReplacesThem) {
  AtomicHandle<const std::vector<int>> handle;
  handle.Store(std::make_shared<const std::vector<int>>(8, 0));
  std::atomic<bool> torn{false};
  const auto read = [&] {
    for (int i = 0; i < 2000; ++i) {
      const auto values = handle.Load();
      if (values->size() != 8 || values->front() != values->back()) torn = true;
    }
  };
  std::thread first(read), second(read);
  for (int i = 1; i <= 2000; ++i) handle.Store(std::make_shared<const std::vector<int>>(8, i));
  first.join();
  second.join();
  EXPECT_FALSE(torn);
  EXPECT_EQ(handle.Load()->front(), 2000);
}

}  // namespace fenlux::testing
