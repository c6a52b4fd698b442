// Request 12: the four switches of the host's configuration.
#include "tests/unit/module/module_test.h"

namespace fenlux::testing {
namespace {

class SwitchSettings : public ModuleTest {};
class SwitchSettingsFailure : public ModuleTest,
                              public ::testing::WithParamInterface<std::tuple<const char*, Failure>> {};

}  // namespace

TEST_F(SwitchSettings, AllFourAreQueriedInOrderAndSent) {
  const auto interact = ReadyInteract();
  interact->SetSpspState(0);
  EXPECT_EQ(Calls(),
            (Lines{"CUtility::CreateBuffer(true, 65561, false)", "CCfg::GetSpspSettings()",
                   "CSpspSettings::GetSpspFlag1()", "CSpspSettings::GetSpspFlag2()", "CSpspSettings::GetSpspFlag3()",
                   "CSpspSettings::GetSpspFlag4()", "CPortClient::Send(12, no reply, true)"}));
  ASSERT_EQ(host.Requests().size(), 1u);
  EXPECT_TRUE(SameBytes(GoldenRequest("e3 4a a3 29 e7 ff 79 8f  0c 00 00 00  11 12 13 14"), host.Requests()[0].bytes));
}

TEST_F(SwitchSettings, TheBufferIsCheckedBeforeTheSettingsAreQueried) {
  const auto interact = ReadyInteract();
  interact->SetSpspState(0);
  const Lines calls = Gate().Entries();
  const auto data = std::find(calls.begin(), calls.end(), "CBuf::GetData()");
  const auto asked = std::find(calls.begin(), calls.end(), "CCfg::GetSpspSettings()");
  EXPECT_LT(data, asked);
}

class SkippingArgument : public ModuleTest, public ::testing::WithParamInterface<std::uint8_t> {};

TEST_P(SkippingArgument, QueriesOnlyTheOuterSwitchesAndSends0ForTheMiddleOnes) {
  const auto interact = ReadyInteract();
  interact->SetSpspState(GetParam());
  EXPECT_EQ(Gate().EntriesOf({"CSpspSettings::"}),
            (Lines{"CSpspSettings::GetSpspFlag1()", "CSpspSettings::GetSpspFlag4()"}));
  ASSERT_EQ(host.Requests().size(), 1u);
  EXPECT_TRUE(SameBytes(GoldenRequest("e3 4a a3 29 e7 ff 79 8f  0c 00 00 00  11 00 00 14"), host.Requests()[0].bytes));
}

INSTANTIATE_TEST_SUITE_P(Values, SkippingArgument, ::testing::Values(1, 2, 0x80, 0xFF));

TEST_F(SwitchSettings, AbsentSettingsAreReportedAndNothingIsSent) {
  const auto interact = ReadyInteract();
  Gate().GiveEmpty("CCfg::GetSpspSettings");
  interact->SetSpspState(0);
  ASSERT_EQ(Logged().size(), 1u);
  EXPECT_EQ(Logged()[0].rfind("CLog::LogProblem(0x10003, [wdi,spsp,STDE] info=", 0), 0u) << Logged()[0];
  EXPECT_TRUE(host.Requests().empty());
}

TEST_F(SwitchSettings, WithoutAPortClientOneLineIsLogged) {
  const auto interact = NewInteract();
  interact->SetSpspState(0);
  ASSERT_EQ(Logged().size(), 1u);
  EXPECT_EQ(Logged()[0].rfind("CLog::LogProblem(0x10003, [wdi,spsp,STDE] info=", 0), 0u) << Logged()[0];
}

TEST_P(SwitchSettingsFailure, IsReportedAndNotThrown) {
  const auto& [operation, failure] = GetParam();
  const auto interact = ReadyInteract();
  Gate().FailAt(operation, 1, failure);
  interact->SetSpspState(0);
  EXPECT_EQ(Gate().FailedOperation(), operation);
  EXPECT_EQ(Logged(), Lines{Problem(Report("wdi,spsp", failure))});
}

TEST_P(SwitchSettingsFailure, IsSwallowedEvenIfTheLogFails) {
  const auto& [operation, failure] = GetParam();
  const auto interact = ReadyInteract();
  Gate().FailAt(operation, 1, failure);
  Gate().FailAlways("CLog::LogProblem", failure);
  interact->SetSpspState(0);
  EXPECT_EQ(Gate().Count("CLog::LogProblem"), 1u);
}

INSTANTIATE_TEST_SUITE_P(Failures, SwitchSettingsFailure,
                         ::testing::Combine(::testing::Values("CUtility::CreateBuffer", "CBuf::GetData",
                                                              "CCfg::GetSpspSettings", "CSpspSettings::GetSpspFlag1",
                                                              "CSpspSettings::GetSpspFlag2",
                                                              "CSpspSettings::GetSpspFlag3",
                                                              "CSpspSettings::GetSpspFlag4", "CPortClient::Send"),
                                            ::testing::ValuesIn(kAllFailures)));

}  // namespace fenlux::testing
