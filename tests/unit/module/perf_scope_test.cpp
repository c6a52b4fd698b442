// The scoped measurement of one notification's handling.
#include "kdi/perf_scope.h"

#include "tests/unit/module/module_test.h"

namespace fenlux::testing {
namespace {

const Lines kMeasured{"CGlobalContext::GetCfg()",
                      "CCfg::IsMeasuringEnabled(0, 0)",
                      "CGlobalContext::GetUtility()",
                      "CUtility::CreateMeasurement()",
                      "CGlobalContext::GetLog()",
                      "CMeasurement::GetResultText()",
                      "CLog::LogEvent(0x10034, [PFM final]=12 us)"};

class PerfScope : public ModuleTest {
 protected:
  void RunScope() { const CPerfScope scope(host.Context()); }
};

class PerfScopeFailure : public PerfScope, public ::testing::WithParamInterface<std::tuple<std::size_t, Failure>> {};

}  // namespace

TEST_F(PerfScope, IfMeasuringIsOffOnlyTheSwitchIsQueried) {
  RunScope();
  EXPECT_EQ(Gate().Entries(), (Lines{"CGlobalContext::GetCfg()", "CCfg::IsMeasuringEnabled(0, 0)"}));
}

TEST_F(PerfScope, IfMeasuringIsOnTheResultIsLoggedWithItsOwnCode) {
  Settings().measuring = true;
  RunScope();
  EXPECT_EQ(Gate().Entries(), kMeasured);
}

TEST_F(PerfScope, TheLineIsWrittenAtTheEndOfTheScope) {
  Settings().measuring = true;
  {
    const CPerfScope scope(host.Context());
    EXPECT_TRUE(Logged().empty());
  }
  EXPECT_EQ(Logged().size(), 1u);
}

TEST_F(PerfScope, AnEmptyMeasurementMakesItInert) {
  Settings().measuring = true;
  Gate().GiveEmpty("CUtility::CreateMeasurement");
  RunScope();
  EXPECT_TRUE(Logged().empty());
  EXPECT_EQ(Gate().Count("CMeasurement::"), 0u);
}

TEST_F(PerfScope, AMissingServiceMakesItInert) {
  Settings().measuring = true;
  for (const char* getter : {"CGlobalContext::GetCfg", "CGlobalContext::GetUtility", "CGlobalContext::GetLog"}) {
    Gate().GiveEmpty(getter);
    RunScope();
    EXPECT_TRUE(Logged().empty()) << getter;
    Gate().StopGivingEmpty(getter);
  }
}

TEST_P(PerfScopeFailure, LosesOnlyTheLine) {
  const auto& [n, failure] = GetParam();
  Settings().measuring = true;
  Gate().FailAt(n, failure);
  RunScope();
  EXPECT_EQ(Gate().Entries(), Lines(kMeasured.begin(), kMeasured.begin() + static_cast<std::ptrdiff_t>(n)));
}

INSTANTIATE_TEST_SUITE_P(AtEveryCall, PerfScopeFailure,
                         ::testing::Combine(::testing::Range<std::size_t>(1, 8), ::testing::ValuesIn(kAllFailures)));

TEST_F(PerfScope, EveryDispatchedNotificationIsMeasured) {
  Settings().measuring = true;
  const auto interact = NewInteract();
  const Bytes message = NotificationBuilder(4098).Build();
  ASSERT_TRUE(interact->DispatchNotification(message.data(), static_cast<std::uint32_t>(message.size())));
  const Lines calls = Gate().Entries();
  EXPECT_EQ(calls.back(), "CLog::LogEvent(0x10034, [PFM final]=12 us)");
  EXPECT_EQ(Gate().Count("CUtility::CreateMeasurement"), 1u);
}

TEST_F(PerfScope, TheHandshakeIsNotMeasured) {
  Settings().measuring = true;
  const auto interact = ReadyInteract();
  interact->CheckDriverVersion();
  EXPECT_EQ(Gate().Count("CCfg::IsMeasuringEnabled"), 0u);
  EXPECT_EQ(Gate().Count("CUtility::CreateMeasurement"), 0u);
}

TEST_F(PerfScope, AFailedNotificationIsMeasuredToo) {
  Settings().measuring = true;
  const auto interact = NewInteract();
  const Bytes message(155);
  ASSERT_TRUE(interact->DispatchNotification(message.data(), 155));
  EXPECT_EQ(Logged(), (Lines{Problem("[wdi,wdaokd,STDE] info=[wdi,wdaokd-1]bad size!"),
                             "CLog::LogEvent(0x10034, [PFM final]=12 us)"}));
}

}  // namespace fenlux::testing
