// The counts of the last seconds and minutes, at times that the test chooses.
#include "refhost/app/status/host_history.h"

#include <gtest/gtest.h>

namespace fenlux::refhost {
namespace {

using std::chrono::microseconds;
using std::chrono::milliseconds;
using std::chrono::nanoseconds;
using std::chrono::seconds;

const HostHistory::Clock::time_point kStart = HostHistory::Clock::time_point() + std::chrono::hours(1);

void AddLatency(HistoryCounts& counts, nanoseconds latency, std::uint64_t times = 1) {
  counts.latencies.buckets[LatencyCounts::Bucket(latency)] += times;
}

TEST(LatencyCounts, PutEveryTimeBetweenTheEdgesOfItsBucket) {
  for (std::int64_t time = 1; time < 30'000'000'000; time += time / 7 + 1) {
    const nanoseconds latency(time);
    const std::size_t bucket = LatencyCounts::Bucket(latency);
    ASSERT_LT(bucket, LatencyCounts::kBuckets) << time;
    EXPECT_GE(LatencyCounts::UpperEdge(bucket), latency);
    if (bucket > 0) {
      EXPECT_LT(LatencyCounts::UpperEdge(bucket - 1), latency);
    }
  }
  EXPECT_EQ(LatencyCounts::Bucket(nanoseconds(-1)), 0u);
  EXPECT_EQ(LatencyCounts::Bucket(std::chrono::hours(1)), LatencyCounts::kBuckets - 1);
}

TEST(LatencyCounts, GiveQuantilesWithinTheWidthOfABucket) {
  LatencyCounts counts;
  for (int time = 1; time <= 1000; ++time) ++counts.buckets[LatencyCounts::Bucket(microseconds(time))];
  const LatencySummary summary = counts.Summary(microseconds(1000));
  EXPECT_EQ(summary.count, 1000u);
  EXPECT_NEAR(static_cast<double>(summary.p50.count()), 500e3, 500e3 * 0.125);
  EXPECT_NEAR(static_cast<double>(summary.p99.count()), 990e3, 990e3 * 0.125);
  EXPECT_EQ(summary.max, microseconds(1000));
}

TEST(HostHistory, ShowsOnlyWhatHappenedInThePeriod) {
  HostHistory history;
  HistoryCounts counts;
  AddLatency(counts, milliseconds(100), 5);
  counts.lostLines = 3;
  history.Add(kStart, counts, milliseconds(100));
  AddLatency(counts, milliseconds(1), 10);
  counts.unjudgedByLoad = 2;
  history.Add(kStart + seconds(50), counts, milliseconds(1));

  const auto now = kStart + seconds(55);
  const HistoryWindow ten = history.Window(now, seconds(10), counts, nanoseconds(0));
  EXPECT_EQ(ten.latency.count, 10u);
  EXPECT_EQ(ten.latency.max, milliseconds(1));
  EXPECT_EQ(ten.lostLines, 0u);
  EXPECT_EQ(ten.unjudgedByLoad, 2u);
  const HistoryWindow minute = history.Window(now, seconds(60), counts, nanoseconds(0));
  EXPECT_EQ(minute.latency.count, 15u);
  EXPECT_EQ(minute.latency.max, milliseconds(100));
  EXPECT_EQ(minute.lostLines, 3u);
}

TEST(HostHistory, IncludesEventsAfterTheLastSecond) {
  HostHistory history;
  HistoryCounts counts;
  history.Add(kStart, counts, nanoseconds(0));
  AddLatency(counts, milliseconds(2));
  counts.lostLines = 1;
  const HistoryWindow window = history.Window(kStart + milliseconds(10), seconds(10), counts, milliseconds(2));
  EXPECT_EQ(window.latency.count, 1u);
  EXPECT_EQ(window.latency.max, milliseconds(2));
  EXPECT_EQ(window.lostLines, 1u);
}

TEST(HostHistory, DropsEventsOlderThanTheLongestPeriod) {
  HostHistory history;
  HistoryCounts counts;
  for (int second = 0; second < 2000; ++second) {
    AddLatency(counts, milliseconds(1));
    history.Add(kStart + seconds(second), counts, milliseconds(1));
  }
  const HistoryWindow window = history.Window(kStart + seconds(1999), HostHistory::kLongest, counts, nanoseconds(0));
  EXPECT_EQ(window.latency.count, 600u);
}

TEST(HostHistory, IsDueOnceASecond) {
  HostHistory history;
  EXPECT_TRUE(history.IsDue(kStart));
  history.Add(kStart, {}, nanoseconds(0));
  EXPECT_FALSE(history.IsDue(kStart + milliseconds(999)));
  EXPECT_TRUE(history.IsDue(kStart + milliseconds(1000)));
}

}  // namespace
}  // namespace fenlux::refhost
