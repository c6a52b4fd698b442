// Durations on the command line.
#include "refhost/base/text/duration_text.h"

#include <gtest/gtest.h>

#include <string>

namespace fenlux::refhost {
namespace {

std::int64_t Milliseconds(std::string_view text) {
  const auto duration = ParseDuration(text);
  return duration ? duration->count() : -1;
}

TEST(DurationText, AcceptsSecondsOrAUnit) {
  EXPECT_EQ(Milliseconds("30"), 30'000);
  EXPECT_EQ(Milliseconds("0.3"), 300);
  EXPECT_EQ(Milliseconds("300ms"), 300);
  EXPECT_EQ(Milliseconds("30s"), 30'000);
  EXPECT_EQ(Milliseconds("5m"), 300'000);
  EXPECT_EQ(Milliseconds("2h"), 7'200'000);
  EXPECT_EQ(Milliseconds("1.5h"), 5'400'000);
  EXPECT_EQ(Milliseconds("0.25m"), 15'000);
}

TEST(DurationText, RefusesEverythingElse) {
  for (const char* text : {"", "s", "abc", "5 m", " 5", "5mm", "-5", "+5", "1e9", "1.", ".5", "1.2.3", "inf", "nan"}) {
    EXPECT_EQ(Milliseconds(text), -1) << text;
  }
}

TEST(DurationText, AcceptsOneMillisecondToTenYears) {
  EXPECT_EQ(Milliseconds("0"), -1);
  EXPECT_EQ(Milliseconds("0.0004"), -1);
  EXPECT_EQ(Milliseconds("87840h"), 87'840LL * 3'600'000);
  EXPECT_EQ(Milliseconds("87841h"), -1);
  EXPECT_EQ(Milliseconds("999999999999h"), -1);
  EXPECT_EQ(Milliseconds(std::string(400, '9')), -1);
}

}  // namespace
}  // namespace fenlux::refhost
