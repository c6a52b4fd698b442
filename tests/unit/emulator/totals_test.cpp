// The sums of the totals, and the quantiles of known times.
#include <gtest/gtest.h>

#include <atomic>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "refhost/emulator/driver/shared/totals_counter.h"

namespace fenlux::testing {
namespace {

using refhost::EmulatorTotals;
using refhost::kUnjudgedCauses;
using refhost::LatencyHistogram;
using refhost::TotalsCounter;
using refhost::UnjudgedCause;
using refhost::UnjudgedPolicy;
using std::chrono::nanoseconds;

TEST(Totals, AddUpWithEveryOutcome) {
  TotalsCounter counter;
  for (int i = 0; i < 10; ++i) counter.Delivered(4097);
  counter.Answered(4097, 2, nanoseconds(10));
  counter.Answered(4097, 4, nanoseconds(20));
  counter.UnansweredByDesign(nanoseconds(5));
  counter.Late();
  for (const UnjudgedCause cause : refhost::kLostCauses) counter.Lost(cause);
  counter.KernelRead();
  counter.KernelAnswered(true);
  counter.KernelRead();
  counter.KernelAnswered(false);
  counter.KernelRead();
  counter.Unjudged(UnjudgedCause::kOwnProcess);
  counter.KernelRead();
  counter.Unjudged(UnjudgedCause::kPathNotEstablished);
  counter.KernelRefusedUnjudged();

  const EmulatorTotals totals = counter.Snapshot();
  EXPECT_EQ(totals.delivered, 10u);
  EXPECT_EQ(totals.answered, 2u);
  EXPECT_EQ(totals.unansweredByDesign, 1u);
  EXPECT_EQ(totals.late, 1u);
  EXPECT_EQ(totals.lost, 5u);
  EXPECT_EQ(totals.inFlight, 1u);
  EXPECT_EQ(totals.byCode, (std::map<std::uint32_t, std::uint64_t>{{4097, 10}}));
  EXPECT_EQ(totals.byVerdict, (std::map<std::uint32_t, std::uint64_t>{{2, 1}, {4, 1}}));
  EXPECT_EQ(totals.byCodeAndVerdict,
            (std::map<std::uint32_t, std::map<std::uint32_t, std::uint64_t>>{{4097, {{2, 1}, {4, 1}}}}));
  EXPECT_EQ(totals.kernelEvents, 4u);
  EXPECT_EQ(totals.kernelRefused, 2u);
  EXPECT_EQ(totals.kernelRefusedUnjudged, 1u);
  EXPECT_EQ(totals.kernelAllowed, 1u);
  EXPECT_EQ(totals.kernelInFlight, 1u);
  EXPECT_EQ(totals.Unjudged(UnjudgedCause::kOwnProcess), 1u);
  EXPECT_EQ(totals.latency.count, 3u);
  EXPECT_TRUE(totals.AddsUp());
  EXPECT_EQ(counter.RecentLatencies().Counts().Count(), 3u);
  EXPECT_EQ(counter.RecentLatencies().Counts().sumNanoseconds, 35u);
  EXPECT_EQ(counter.RecentLatencies().Max(/*reset=*/true), nanoseconds(20));
  EXPECT_EQ(counter.RecentLatencies().Max(/*reset=*/false), nanoseconds(0));
}

TEST(Totals, EverySumIsChecked) {
  TotalsCounter counter;
  counter.Delivered(4097);
  counter.Answered(4097, 2, nanoseconds(10));
  const EmulatorTotals right = counter.Snapshot();
  ASSERT_TRUE(right.AddsUp());
  const auto wrong = [&right](auto change) {
    EmulatorTotals totals = right;
    change(totals);
    return !totals.AddsUp();
  };
  EXPECT_TRUE(wrong([](EmulatorTotals& t) { ++t.delivered; }));
  EXPECT_TRUE(wrong([](EmulatorTotals& t) { ++t.answered; }));
  EXPECT_TRUE(wrong([](EmulatorTotals& t) { ++t.unansweredByDesign; }));
  EXPECT_TRUE(wrong([](EmulatorTotals& t) { ++t.late; }));
  EXPECT_TRUE(wrong([](EmulatorTotals& t) { ++t.lost; }));
  EXPECT_TRUE(wrong([](EmulatorTotals& t) { ++t.inFlight; }));
  EXPECT_TRUE(wrong([](EmulatorTotals& t) { ++t.byCode[1]; }));
  EXPECT_TRUE(wrong([](EmulatorTotals& t) { ++t.byVerdict[1]; }));
  EXPECT_TRUE(wrong([](EmulatorTotals& t) { ++t.unjudged[static_cast<std::size_t>(UnjudgedCause::kLate)]; }));
  EXPECT_TRUE(wrong([](EmulatorTotals& t) { ++t.unjudged[static_cast<std::size_t>(UnjudgedCause::kEmptyReply)]; }));
  EXPECT_TRUE(wrong([](EmulatorTotals& t) { ++t.latency.count; }));
  EXPECT_TRUE(wrong([](EmulatorTotals& t) { ++t.kernelEvents; }));
  EXPECT_TRUE(wrong([](EmulatorTotals& t) { ++t.kernelRefusedUnjudged; }));
  EXPECT_TRUE(wrong([](EmulatorTotals& t) {  // a refusal without a judgement and without a cause
    t.kernelEvents = t.kernelRefused = t.kernelRefusedUnjudged = 1;
  }));
}

TEST(Totals, StayConsistentUnderConcurrentCounting) {
  constexpr std::uint32_t kThreads = 20;  // more than there are parts
  constexpr std::uint32_t kEach = 400;
  TotalsCounter counter;
  std::atomic<bool> done{false};
  std::atomic<std::uint32_t> abandoned{0};
  std::vector<std::thread> threads;
  for (std::uint32_t t = 0; t < kThreads; ++t) {
    threads.emplace_back([&counter, &abandoned, t] {
      for (std::uint32_t i = 0; i < kEach; ++i) {
        counter.Delivered(4097 + t % 4);
        if (i % 2 == 0) {
          counter.Answered(4097 + t % 4, 2 + t % 4, nanoseconds(i));
        } else {
          ++abandoned;
        }
      }
    });
  }
  std::thread watchdog([&counter, &abandoned, &done] {
    for (std::uint32_t ended = 0; !done || ended < abandoned;) {
      if (ended < abandoned) {
        counter.Late();
        ++ended;
      } else {
        std::this_thread::yield();
      }
    }
  });
  bool consistent = true;
  for (int i = 0; i < 200; ++i) consistent = counter.Snapshot().AddsUp() && consistent;
  for (std::thread& thread : threads) thread.join();
  done = true;
  watchdog.join();
  const EmulatorTotals totals = counter.Snapshot();
  EXPECT_TRUE(consistent);
  EXPECT_TRUE(totals.AddsUp());
  EXPECT_EQ(totals.answered, kThreads * kEach / 2);
  EXPECT_EQ(totals.late, kThreads * kEach / 2);
  EXPECT_EQ(totals.inFlight, 0u);
  EXPECT_EQ(totals.latency.count, kThreads * kEach / 2);
  EXPECT_NEAR(static_cast<double>(totals.latency.p50.count()), kEach / 2, kEach * 0.03);
  EXPECT_EQ(totals.latency.max, nanoseconds(kEach - 2));
}

TEST(Totals, AddUpIfAnotherThreadCountsTheEnd) {
  TotalsCounter counter;
  counter.Delivered(4097);
  counter.Delivered(4098);
  counter.KernelRead();
  std::thread([&counter] {
    counter.Late();
    counter.KernelAnswered(false);
    counter.Delivered(4097);
    counter.Answered(4097, 2, nanoseconds(10));
  }).join();

  const EmulatorTotals totals = counter.Snapshot();
  EXPECT_EQ(totals.delivered, 3u);
  EXPECT_EQ(totals.inFlight, 1u);
  EXPECT_EQ(totals.late, 1u);
  EXPECT_EQ(totals.kernelInFlight, 0u);
  EXPECT_EQ(totals.byCode, (std::map<std::uint32_t, std::uint64_t>{{4097, 2}, {4098, 1}}));
  EXPECT_EQ(totals.latency.max, nanoseconds(10));
  EXPECT_TRUE(totals.AddsUp());
}

TEST(Totals, EveryCauseHasItsOwnNameAndText) {
  std::set<std::string> names;
  std::set<std::string> texts;
  for (std::size_t i = 0; i < kUnjudgedCauses; ++i) {
    names.emplace(refhost::UnjudgedCauseName(static_cast<UnjudgedCause>(i)));
    texts.emplace(refhost::UnjudgedCauseText(static_cast<UnjudgedCause>(i)));
  }
  EXPECT_EQ(names.size(), kUnjudgedCauses);
  EXPECT_FALSE(names.contains(""));
  EXPECT_EQ(texts.size(), kUnjudgedCauses);
  EXPECT_FALSE(texts.contains(""));
}

TEST(Unjudged, RefusesByDefaultOnlyUnknownPathsAndProgramsAndWhatTheKernelRefused) {
  const std::set<UnjudgedCause> refused{UnjudgedCause::kPathNotEstablished, UnjudgedCause::kProgramNotEstablished,
                                        UnjudgedCause::kNoDescriptors, UnjudgedCause::kNotOpened};
  for (std::size_t i = 0; i < kUnjudgedCauses; ++i) {
    const auto cause = static_cast<UnjudgedCause>(i);
    EXPECT_EQ(refhost::IsRefusedUnjudged(cause, UnjudgedPolicy::kAllow), refused.contains(cause))
        << refhost::UnjudgedCauseName(cause);
  }
}

TEST(Unjudged, TheSettingRefusesAllButTheHostsOwnEventsAndThoseOfAStopOrOverflow) {
  const std::set<UnjudgedCause> allowed{UnjudgedCause::kOwnProcess, UnjudgedCause::kStopped, UnjudgedCause::kStopping,
                                        UnjudgedCause::kQueueOverflow};
  for (std::size_t i = 0; i < kUnjudgedCauses; ++i) {
    const auto cause = static_cast<UnjudgedCause>(i);
    EXPECT_EQ(refhost::IsRefusedUnjudged(cause, UnjudgedPolicy::kRefuse), !allowed.contains(cause))
        << refhost::UnjudgedCauseName(cause);
  }
}

TEST(Latency, IsZeroBeforeAnythingIsCounted) {
  const auto summary = LatencyHistogram().Summary();
  EXPECT_EQ(summary.count, 0u);
  EXPECT_EQ(summary.p99, nanoseconds(0));
  EXPECT_EQ(summary.max, nanoseconds(0));
}

TEST(Latency, GivesTheQuantilesOfKnownTimes) {
  LatencyHistogram histogram;
  for (int i = 1; i <= 1000; ++i) histogram.Add(nanoseconds(i * 1000));
  const auto summary = histogram.Summary();
  const auto within = [](nanoseconds value, double expected) {
    return static_cast<double>(value.count()) >= expected && static_cast<double>(value.count()) <= expected * 1.04;
  };
  EXPECT_EQ(summary.count, 1000u);
  EXPECT_TRUE(within(summary.p50, 500'000)) << summary.p50.count();
  EXPECT_TRUE(within(summary.p95, 950'000)) << summary.p95.count();
  EXPECT_TRUE(within(summary.p99, 990'000)) << summary.p99.count();
  EXPECT_EQ(summary.max, nanoseconds(1'000'000));
}

TEST(Latency, CoversTheWholeRangeOfTimes) {
  for (const std::int64_t value :
       {std::int64_t{0}, std::int64_t{1}, std::int64_t{31}, std::int64_t{32}, std::int64_t{33}, std::int64_t{1} << 40,
        std::numeric_limits<std::int64_t>::max(), std::int64_t{-5}}) {
    LatencyHistogram histogram;
    histogram.Add(nanoseconds(value));
    EXPECT_EQ(histogram.Summary().p50, nanoseconds(std::max<std::int64_t>(value, 0)));
  }
}

}  // namespace
}  // namespace fenlux::testing
