// A value that changes while others read it.
#include "refhost/base/live_value.h"

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

namespace fenlux::refhost {
namespace {

TEST(LiveValue, SnapshotsDoNotChange) {
  LiveValue<std::string> value("one");
  const auto held = value.Get();
  value.Set("two");
  EXPECT_EQ(*held, "one");
  EXPECT_EQ(*value.Get(), "two");
}

TEST(LiveValue, ReadersNeverSeeAPartialValue) {
  LiveValue<std::vector<int>> value(std::vector<int>(64, 0));
  std::atomic<bool> end{false};
  std::atomic<int> torn{0};
  std::vector<std::thread> readers;
  for (int count = 0; count < 2; ++count) {
    readers.emplace_back([&] {
      while (!end) {
        const auto held = value.Get();
        if (held->front() != held->back()) ++torn;
      }
    });
  }
  for (int round = 1; round <= 2000; ++round) value.Set(std::vector<int>(64, round));
  end = true;
  for (std::thread& reader : readers) reader.join();
  EXPECT_EQ(torn, 0);
  EXPECT_EQ(value.Get()->back(), 2000);
}

}  // namespace
}  // namespace fenlux::refhost
