// Threads that nobody joins.
#include "common/detached_thread.h"

#include <gtest/gtest.h>

#include <future>
#include <thread>
#include <utility>

#include "tests/support/test_timeout.h"

namespace fenlux::testing {
namespace {

TEST(DetachedThread, EveryThreadRunsEvenIfTheOneBeforeItIsJustEnding) {
  constexpr int kThreads = 2'000;
  for (int index = 0; index < kThreads; ++index) {
    std::promise<std::thread::id> promise;
    std::future<std::thread::id> id = promise.get_future();
    const std::thread::id started = StartDetachedThread(
        [promise = std::move(promise)]() mutable { promise.set_value(std::this_thread::get_id()); });
    ASSERT_EQ(id.wait_for(kTestTimeout), std::future_status::ready) << "thread " << index << " did not run";
    ASSERT_EQ(id.get(), started);
  }
}

}  // namespace
}  // namespace fenlux::testing
