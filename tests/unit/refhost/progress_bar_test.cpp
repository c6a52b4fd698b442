// The line of the progress bar.
#include "refhost/base/progress_bar.h"

#include <gtest/gtest.h>

namespace fenlux::refhost {
namespace {

using namespace std::chrono_literals;

TEST(ProgressBar, ShowsShareRateAndRemainingTime) {
  EXPECT_EQ(ProgressText(0, 100, 0ms), "[..............................]   0%");
  EXPECT_EQ(ProgressText(0, 100, 5s), "[..............................]   0%");
  EXPECT_EQ(ProgressText(500'000'000, 1'000'000'000, 5s),
            "[###############...............]  50%  100.0 MB/s  5 s left");
  EXPECT_EQ(ProgressText(1'000'000, 1'000'000'000, 1s), "[..............................]   0%  1.0 MB/s  17 min left");
  EXPECT_EQ(ProgressText(1'000'000, 10'000'000'000, 1s), "[..............................]   0%  1.0 MB/s  2.8 h left");
  EXPECT_EQ(ProgressText(100, 100, 1s), "[##############################] 100%  0.0 MB/s  0 s left");
}

// A file may grow while it is read.
TEST(ProgressBar, DoesNotExceedOneHundredPercent) {
  EXPECT_EQ(ProgressText(300, 100, 1s), ProgressText(100, 100, 1s));
  EXPECT_EQ(ProgressText(0, 0, 1s), "[##############################] 100%");
}

}  // namespace
}  // namespace fenlux::refhost
