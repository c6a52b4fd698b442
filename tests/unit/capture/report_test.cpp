// The statistics of a report, and the text of its page.
#include <gmock/gmock.h>

#include <sstream>

#include "refhost/capture/report/html_text.h"
#include "refhost/capture/report/report_page.h"
#include "tests/unit/capture/capture_support.h"

namespace fenlux::testing {
namespace {

using namespace fenlux::capture;
using ::testing::HasSubstr;
using ::testing::Not;

TEST(LatencyHistogram, PercentilesAreExactToAFewPercent) {
  LatencyHistogram histogram;
  EXPECT_EQ(histogram.Percentile(0.5), 0u);
  for (std::uint64_t latency = 1000; latency <= 1'000'000; latency += 1000) histogram.Add(latency);
  EXPECT_EQ(histogram.Count(), 1000u);
  EXPECT_EQ(histogram.Max(), 1'000'000u);
  EXPECT_NEAR(static_cast<double>(histogram.Percentile(0.5)), 500'000, 40'000);
  EXPECT_NEAR(static_cast<double>(histogram.Percentile(0.99)), 990'000, 70'000);
  EXPECT_LE(histogram.Percentile(1.0), histogram.Max());
}

TEST(LatencyHistogram, EveryLatencyIsCountedInItsClass) {
  for (std::uint64_t latency = 0; latency < 200'000'000'000; latency = latency * 5 / 4 + 7) {
    LatencyHistogram histogram;
    histogram.Add(latency);
    for (std::size_t i = 0; i < LatencyHistogram::kClasses; ++i) {
      if (histogram.CountOf(i) == 0) continue;
      EXPECT_GE(latency, LatencyHistogram::LowerBound(i));
      if (i + 1 == LatencyHistogram::kClasses) break;  // everything above
      EXPECT_LT(latency, LatencyHistogram::LowerBound(i + 1));
    }
  }
}

TEST(TimeLine, WidensItsIntervalsAndLosesNothing) {
  TimeLine line;
  constexpr std::uint64_t kSecond = 1'000'000'000;
  for (std::uint64_t i = 0; i < 10'000; ++i) line.Add(5 * kSecond + i * i * 1000, 10);
  line.Add(4 * kSecond, 10);  // before the first one
  std::uint64_t count = 0;
  for (const LatencyHistogram& interval : line.Intervals()) count += interval.Count();
  EXPECT_EQ(count, 10'001u);
  EXPECT_EQ(line.Begin(), 5 * kSecond);
  EXPECT_LE(line.Intervals().size(), 160u);
  EXPECT_GE(line.Interval() * line.Intervals().size(), 9999u * 9999u * 1000u);
}

TEST(TopList, KeepsTheMostFrequentAndTheSlowestOfTooManyKeys) {
  TopList list;
  list.Add("slow", 1'000'000);
  for (int i = 0; i < 50'000; ++i) {
    list.Add("rare " + std::to_string(i), 1);
    list.Add("frequent", 1);
  }
  EXPECT_TRUE(list.Incomplete());
  ASSERT_FALSE(list.ByCount(1).empty());
  EXPECT_EQ(list.ByCount(1)[0].key, "frequent");
  EXPECT_EQ(list.ByCount(1)[0].count, 50'000u);
  EXPECT_EQ(list.ByTime(1)[0].key, "slow");
}

TEST(ReportPage, TextsOfTheCaptureAreEscaped) {
  CaptureText capture;
  capture.Add(Kind::kConnectContext, 0, "<b>context</b>");
  capture.Add(Kind::kNotification, 1, "<script>alert(1)</script>");
  capture.Add(Kind::kJudgement, 1, R"({"decision":2,"rule":"<img src=x onerror=alert(1)>"})");
  capture.Add(Kind::kNotificationReply, 1, "", 2, "<i>\"failed\"</i>");
  capture.Add(Kind::kClosed, 0, "</table><script>");
  std::istringstream stream(capture.Text());
  const std::string page = ReportPage(CollectStatistics(stream, {}), "</title><script>", "<file>");
  for (const char* markup : {"<script", "<img", "<i>", "<b>", "<file>"}) EXPECT_THAT(page, Not(HasSubstr(markup)));
  EXPECT_THAT(page, HasSubstr("&lt;img src=x onerror=alert(1)&gt;"));
  EXPECT_THAT(page, HasSubstr("failed: &lt;i&gt;&quot;failed&quot;&lt;/i&gt;"));
}

TEST(ReportPage, AnEmptyCaptureHasAPage) {
  std::istringstream stream(CaptureText().Text());
  const std::string page = ReportPage(CollectStatistics(stream, {}), "empty", "file");
  EXPECT_THAT(page, HasSubstr("None in this capture."));
  EXPECT_THAT(page, HasSubstr("</html>"));
}

TEST(HtmlText, DurationsHaveUnits) {
  EXPECT_EQ(DurationText(812), "812 ns");
  EXPECT_EQ(DurationText(41'700), "41.7 us");
  EXPECT_EQ(DurationText(3'200'000), "3.20 ms");
  EXPECT_EQ(DurationText(1'500'000'000), "1.50 s");
}

}  // namespace
}  // namespace fenlux::testing
