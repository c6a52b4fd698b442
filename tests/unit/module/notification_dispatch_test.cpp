// How a notification is handled, from the size check to the reply: order of calls, verdicts, and the effect of
// failures.
#include "tests/unit/module/notification_test.h"

namespace fenlux::testing {
namespace {

class NotificationDispatch : public NotificationTest {};
class NotificationDispatchFailure : public NotificationTest, public ::testing::WithParamInterface<Failure> {};

// Context data that claims a size without providing the bytes.
class StatedSizeBuf final : public CBuf {
 public:
  explicit StatedSizeBuf(std::uint64_t statedSize) : size(static_cast<std::size_t>(statedSize)) {}
  std::uint8_t* GetData() override { return &byte; }
  std::size_t GetSize() override { return size; }

 private:
  std::size_t size;
  std::uint8_t byte = 0;
};

std::string ReportOf(Failure failure) { return ReportByKind("wdi,wdaokd", failure); }

}  // namespace

// ---------------------------------------------------------------- size and code

TEST_F(NotificationDispatch, A155ByteMessageGetsTheUnjudgedReplyAndOneReport) {
  const auto reply = Dispatch(Bytes(155));
  EXPECT_TRUE(SameBytes(GoldenReply(8), BytesOf(reply)));
  EXPECT_EQ(Calls(), (Lines{"CGlobalContext::GetCfg()", "CCfg::IsMeasuringEnabled(0, 0)",
                            "CUtility::CreateBuffer(true, 156, false)", BadSize()}));
}

TEST_F(NotificationDispatch, AnEmptyMessageIsABadSize) {
  const auto reply = Dispatch(Bytes());
  EXPECT_TRUE(SameBytes(GoldenReply(8), BytesOf(reply)));
  EXPECT_EQ(Logged(), Lines{BadSize()});
}

TEST_F(NotificationDispatch, ANullMessageIsABadSize) {
  interact = NewInteract();
  for (const std::uint32_t size : {0u, 155u, 156u, 0xFFFFFFFFu}) {
    Forget();
    const auto reply = interact->DispatchNotification(nullptr, size);
    EXPECT_TRUE(SameBytes(GoldenReply(8), BytesOf(reply)));
    EXPECT_EQ(Logged(), Lines{BadSize()});
  }
}

TEST_F(NotificationDispatch, A156ByteMessageWithoutItemsIsJudged) {
  const auto reply = Dispatch(NotificationBuilder(4098, 0x0102030405060708));
  EXPECT_TRUE(SameBytes(GoldenReply(2), BytesOf(reply)));
  EXPECT_EQ(Calls(), (Lines{"CGlobalContext::GetCfg()", "CCfg::IsMeasuringEnabled(0, 0)",
                            "CUtility::CreateBuffer(true, 156, false)", "CArpMgmt::CreateRecord(0)",
                            "CArpRecord::SetSource(1)", "CArpRecord::SetCategory(1)", "CArpRecord::ProcessPart()",
                            "CArpProcess::SetProcessId(72623859790382856)", "CArpRecord::SetEventType(0x4005)",
                            "CAoArp::Evaluate(record)"}));
}

TEST_F(NotificationDispatch, ACodeBelow4096IsABadPosValue) {
  for (const std::uint32_t code : {0u, 1u, 4095u}) {
    const auto reply = Dispatch(NotificationBuilder(code));
    EXPECT_TRUE(SameBytes(GoldenReply(8), BytesOf(reply)));
    EXPECT_EQ(Logged(), Lines{Problem("[wdi,wdaokd,STDE] info=[wdi,wdaokd-2] bad pos value!")});
    EXPECT_EQ(RecordCalls(), Lines{"CArpRecord::SetSource(1)"}) << code;
  }
}

TEST_F(NotificationDispatch, AnUnknownCodeFailsAfterStoringThePaths) {
  for (const std::uint32_t code : {4096u, 4115u, 4119u, 5000u, 8191u, 8192u, 8207u, 0xFFFFFFFFu}) {
    const auto reply = Dispatch(NotificationBuilder(code).Item1(u"/p").Item2(u"/q").Item3({1, 2, 3}));
    EXPECT_TRUE(SameBytes(GoldenReply(8), BytesOf(reply)));
    EXPECT_EQ(Logged(), Lines{UnknownCode()}) << code;
    EXPECT_EQ(RecordCallsAfterProcess(),
              (Lines{"CUtility::ToRecordString(/p)", "CArpRecord::SetPath(/p)", "CUtility::ToRecordString(/p)",
                     "CArpRecord::SetPath(/p)", "CUtility::ToRecordString(/q)", "CArpRecord::SetSecondPath(/q)",
                     "CUtility::BufferFromBytes(3)", "CArpRecord::SetExtraData(010203)"}));
  }
}

TEST_F(NotificationDispatch, CodesFrom8192OnHaveCategory2) {
  Dispatch(NotificationBuilder(8191));
  EXPECT_EQ(Gate().EntriesOf({"CArpRecord::SetCategory"}), Lines{"CArpRecord::SetCategory(1)"});
  Dispatch(NotificationBuilder(8192));
  EXPECT_EQ(Gate().EntriesOf({"CArpRecord::SetCategory"}), Lines{"CArpRecord::SetCategory(2)"});
}

TEST_F(NotificationDispatch, IgnoresTheStateFlags) {
  interact = NewInteract();
  interact->StopInteract();
  EXPECT_EQ(VerdictOf(NotificationBuilder(4098)), 2u);
}

// ---------------------------------------------------------------- verdicts

TEST_F(NotificationDispatch, DecisionsBecomeVerdicts) {
  const std::pair<std::uint32_t, std::uint32_t> verdicts[] = {{0, 8}, {1, 2}, {2, 3}, {3, 4},  {4, 5},
                                                              {6, 7}, {7, 8}, {8, 8}, {99, 8}, {0xFFFFFFFF, 8}};
  for (const auto& [decision, verdict] : verdicts) {
    Settings().decision = decision;
    const auto reply = Dispatch(NotificationBuilder(4098));
    EXPECT_TRUE(SameBytes(GoldenReply(static_cast<std::uint8_t>(verdict)), BytesOf(reply))) << decision;
    EXPECT_TRUE(Logged().empty());
  }
}

TEST_F(NotificationDispatch, Decision2IsVerdict7ForClientType2) {
  Settings().clientTypeFlag = true;
  const std::pair<std::uint32_t, std::uint32_t> verdicts[] = {{1, 2}, {2, 7}, {3, 4}, {4, 5}, {6, 7}, {7, 8}};
  for (const auto& [decision, verdict] : verdicts) {
    Settings().decision = decision;
    EXPECT_EQ(VerdictOf(NotificationBuilder(4098)), verdict) << decision;
  }
}

TEST_F(NotificationDispatch, Decision5AppendsTheContextData) {
  Settings().decision = 5;
  Settings().contextData = [] { return Bytes{0, 1, 2, 3, 4, 5, 6, 7, 8, 9}; };
  const auto reply = Dispatch(NotificationBuilder(4098));
  // The two bytes after the data keep the buffer's filling.
  EXPECT_TRUE(SameBytes(Golden(168)
                            .Hex(0, "e4 42 33 b1 b2 c3 65 53  9c 00 00 00  06 00 00 00  0c 00 00 00")
                            .Hex(156, "00 01 02 03 04 05 06 07 08 09")
                            .Get(),
                        BytesOf(reply)));
  EXPECT_EQ(Gate().EntriesOf({"CUtility::CreateBuffer"}),
            (Lines{"CUtility::CreateBuffer(true, 156, false)", "CUtility::CreateBuffer(true, 168, false)"}));
  EXPECT_TRUE(Logged().empty());
}

TEST_F(NotificationDispatch, Decision5WithoutContextDataKeepsVerdict8) {
  Settings().decision = 5;
  const std::string lost = Problem("[wdi,wdaokd,STDE] info=[wdi,wdaokd] lost context data!");
  EXPECT_TRUE(SameBytes(GoldenReply(8), BytesOf(Dispatch(NotificationBuilder(4098)))));
  EXPECT_EQ(Logged(), Lines{lost});
  Settings().contextData = [] { return Bytes(); };
  EXPECT_TRUE(SameBytes(GoldenReply(8), BytesOf(Dispatch(NotificationBuilder(4098)))));
  EXPECT_EQ(Logged(), Lines{lost});
}

TEST_F(NotificationDispatch, OversizedContextDataKeepsVerdict8) {
  Settings().decision = 5;
  // The reply's size is a 32-bit number: 156 bytes, the data, and two more bytes.
  static constexpr std::uint64_t kLargest = 0xFFFFFFFF - 156 - 2;
  for (const std::uint64_t size : {kLargest + 1, std::uint64_t{0xFFFFFFFF - 2}, std::uint64_t{0xFFFFFFFF - 1},
                                   std::uint64_t{0xFFFFFFFF}, std::uint64_t{0x10000000A}}) {
    Settings().contextBuffer = [size] { return std::make_shared<StatedSizeBuf>(size); };
    EXPECT_TRUE(SameBytes(GoldenReply(8), BytesOf(Dispatch(NotificationBuilder(4098))))) << size;
    EXPECT_EQ(Logged(), Lines{Problem("[wdi,wdaokd,STDE] info=[wdi] context data too large!")}) << size;
    EXPECT_EQ(Gate().Count("CUtility::CreateBuffer"), 1u) << size;
  }
  Settings().contextBuffer = [] { return std::make_shared<StatedSizeBuf>(kLargest); };
  interact = NewInteract();
  Gate().GiveEmptyAt("CUtility::CreateBuffer", 2);
  EXPECT_TRUE(SameBytes(GoldenReply(8), BytesOf(Dispatch(NotificationBuilder(4098)))));
  EXPECT_EQ(Gate().Count("CUtility::CreateBuffer(true, 4294967295, false)"), 1u)
      << "the largest possible reply is requested";
  EXPECT_EQ(Logged(), Lines{Problem("[wdi,wdaokd,STDE] info=[wdi] no reply buffer!")});
}

TEST_F(NotificationDispatch, TheFirstReplyIsKeptIfTheContextReplyCannotBeCreated) {
  Settings().decision = 5;
  Settings().contextData = [] { return Bytes{1, 2}; };
  interact = NewInteract();
  for (const Failure failure : kAllFailures) {
    Gate().FailAt("CUtility::CreateBuffer", 2, failure);
    EXPECT_TRUE(SameBytes(GoldenReply(8), BytesOf(Dispatch(NotificationBuilder(4098)))));
    EXPECT_EQ(Logged(), Lines{Problem(ReportOf(failure))});
  }
  Gate().GiveEmptyAt("CUtility::CreateBuffer", 2);
  EXPECT_TRUE(SameBytes(GoldenReply(8), BytesOf(Dispatch(NotificationBuilder(4098)))));
  EXPECT_EQ(Logged().size(), 1u);
}

TEST_F(NotificationDispatch, TheFirstReplyIsKeptIfTheContextReplyCannotBeFilled) {
  Settings().decision = 5;
  Settings().contextData = [] { return Bytes{1, 2}; };
  interact = NewInteract();
  Dispatch(NotificationBuilder(4098));
  const std::size_t lookings = Gate().Count("CBuf::GetData");
  ASSERT_GE(lookings, 3u);
  // The first access is to the first reply, before anything is guarded; the last one writes the verdict.
  for (std::size_t n = 2; n < lookings; ++n) {
    Gate().FailAt("CBuf::GetData", n, Failure::kStandard);
    const auto reply = Dispatch(NotificationBuilder(4098));
    EXPECT_TRUE(SameBytes(GoldenReply(8), BytesOf(reply))) << n;
  }
}

// ---------------------------------------------------------------- oplock breaks

TEST_F(NotificationDispatch, AnOplockBreakIsAllowedWithoutJudging) {
  const auto reply = Dispatch(NotificationBuilder(4098).Oplock(1));
  EXPECT_TRUE(SameBytes(GoldenReply(3), BytesOf(reply)));
  EXPECT_EQ(RecordCallsAfterProcess(), Lines{"CArpRecord::Describe()"});
  EXPECT_EQ(Logged(), Lines{"CLog::LogDetail(0x10003, [Ignore OPLock]the record)"});
}

TEST_F(NotificationDispatch, AnOplockBreakOfClientType2GetsVerdict7) {
  Settings().clientTypeFlag = true;
  EXPECT_EQ(VerdictOf(NotificationBuilder(4098).Oplock(0xFF)), 7u);
}

TEST_F(NotificationDispatch, AnOplockBreakStillFillsItsRecord) {
  Dispatch(NotificationBuilder(4097).Oplock(1).U32(148, 5).U32(152, 6).Item1(u"/p"));
  EXPECT_EQ(RecordCallsAfterProcess(),
            (Lines{"CUtility::ToRecordString(/p)", "CArpRecord::SetPath(/p)", "CUtility::ToRecordString(/p)",
                   "CArpRecord::SetPath(/p)", "CArpRecord::SetValueA(0x5)", "CArpRecord::SetValueB(0x6)",
                   "CArpRecord::Describe()"}));
}

TEST_F(NotificationDispatch, AnOplockBreakWithAnUnknownCodeIsStillAFailure) {
  EXPECT_EQ(VerdictOf(NotificationBuilder(4096).Oplock(1)), 8u);
  EXPECT_EQ(Logged(), Lines{UnknownCode()});
}

TEST_F(NotificationDispatch, AnOplockBreakOfCode4113GetsNoReply) {
  EXPECT_FALSE(Dispatch(NotificationBuilder(4113).Oplock(1)));
  EXPECT_EQ(Logged(), Lines{"CLog::LogDetail(0x10003, [Ignore OPLock]the record)"});
}

TEST_F(NotificationDispatch, TheOplockTextIsTranslatedAndTheDescriptionAppended) {
  Settings().translate = [](const std::string& text) { return "<" + text + ">"; };
  Dispatch(NotificationBuilder(4098).Oplock(1));
  EXPECT_EQ(Logged(), Lines{"CLog::LogDetail(0x10003, <[Ignore OPLock]>the record)"});
}

TEST_F(NotificationDispatch, AFailingDetailLineDoesNotChangeTheVerdict) {
  interact = NewInteract();
  for (const Failure failure : kAllFailures) {
    Gate().FailAt("CLog::LogDetail", 1, failure);
    EXPECT_EQ(VerdictOf(NotificationBuilder(4098).Oplock(1)), 3u);
  }
}

// ---------------------------------------------------------------- the code without a reply

TEST_F(NotificationDispatch, Code4113GetsNoReplyForAnyDecision) {
  Settings().contextData = [] { return Bytes{1}; };
  for (std::uint32_t decision = 0; decision <= 8; ++decision) {
    Settings().decision = decision;
    EXPECT_FALSE(Dispatch(NotificationBuilder(4113))) << decision;
    EXPECT_EQ(Gate().Count("CAoArp::Evaluate"), 1u);
  }
}

TEST_F(NotificationDispatch, Code4113GetsTheDefaultReplyIfItFailsBeforeTheCodeIsRead) {
  interact = NewInteract();
  Gate().FailAt("CArpMgmt::CreateRecord", 1, Failure::kStandard);
  EXPECT_TRUE(SameBytes(GoldenReply(8), BytesOf(Dispatch(NotificationBuilder(4113)))));
}

TEST_F(NotificationDispatch, Code4113GetsNoReplyIfItFailsLater) {
  interact = NewInteract();
  Gate().FailAt("CAoArp::Evaluate", 1, Failure::kStandard);
  EXPECT_FALSE(Dispatch(NotificationBuilder(4113)));
  EXPECT_EQ(Logged(), Lines{Problem("[wdi,wdaokd,STDE] info=standard failure")});
}

// ---------------------------------------------------------------- failures

TEST_P(NotificationDispatchFailure, AFailingHostServiceIsReportedAndGetsTheUnjudgedReply) {
  interact = NewInteract();
  for (const char* operation :
       {"CArpMgmt::CreateRecord", "CArpRecord::SetSource", "CArpRecord::SetCategory", "CArpRecord::ProcessPart",
        "CArpProcess::SetProcessId", "CUtility::ToRecordString", "CArpRecord::SetPath", "CArpRecord::SetSecondPath",
        "CUtility::BufferFromBytes", "CArpRecord::SetExtraData", "CArpRecord::SetValueA", "CArpRecord::SetValueB",
        "CArpRecord::SetEventType", "CAoArp::Evaluate"}) {
    Gate().FailAt(operation, 1, GetParam());
    const auto reply = Dispatch(NotificationBuilder(4097).Item1(u"/p").Item2(u"/q").Item3({1}));
    EXPECT_EQ(Gate().FailedOperation(), operation);
    EXPECT_TRUE(SameBytes(GoldenReply(8), BytesOf(reply))) << operation;
    EXPECT_EQ(Logged(), Lines{Problem(ReportOf(GetParam()))}) << operation;
  }
}

TEST_P(NotificationDispatchFailure, AFailingReportIsSwallowed) {
  interact = NewInteract();
  Gate().FailAt("CAoArp::Evaluate", 1, GetParam());
  Gate().FailAlways("CLog::LogProblem", GetParam());
  EXPECT_TRUE(SameBytes(GoldenReply(8), BytesOf(Dispatch(NotificationBuilder(4098)))));
  EXPECT_EQ(Gate().Count("CLog::LogProblem"), 1u);
}

TEST_P(NotificationDispatchFailure, AFailingConversionOfABoostMessageLosesNoReport) {
  interact = NewInteract();
  Gate().FailAt("CAoArp::Evaluate", 1, Failure::kBoostSystem);
  Gate().FailAt("CUtility::ConvertText", 1, GetParam());
  EXPECT_TRUE(SameBytes(GoldenReply(8), BytesOf(Dispatch(NotificationBuilder(4098)))));
  ASSERT_EQ(Logged().size(), 1u);
  EXPECT_EQ(Logged()[0].rfind("CLog::LogProblem(0x10003, [wdi,wdaokd,BSTE] code=generic:13,info=", 0), 0u);
}

TEST_P(NotificationDispatchFailure, AFailureToCreateTheFirstReplyPropagates) {
  interact = NewInteract();
  const Bytes message = NotificationBuilder(4098).Build();
  Gate().FailAt("CUtility::CreateBuffer", 1, GetParam());
  EXPECT_TRUE(Propagates(GetParam(), [&] { interact->DispatchNotification(message.data(), 156); }));
  EXPECT_TRUE(Logged().empty());
}

TEST_P(NotificationDispatchFailure, AFailingMeasurementDoesNotChangeTheReply) {
  interact = NewInteract();
  Settings().measuring = true;
  for (const char* operation : {"CGlobalContext::GetCfg", "CCfg::IsMeasuringEnabled", "CUtility::CreateMeasurement",
                                "CGlobalContext::GetLog", "CMeasurement::GetResultText", "CLog::LogEvent"}) {
    Gate().FailAt(operation, 1, GetParam());
    EXPECT_TRUE(SameBytes(GoldenReply(2), BytesOf(Dispatch(NotificationBuilder(4098))))) << operation;
    EXPECT_EQ(Gate().FailedOperation(), operation);
  }
}

INSTANTIATE_TEST_SUITE_P(Failures, NotificationDispatchFailure, ::testing::ValuesIn(kAllFailures));

TEST_F(NotificationDispatch, ReportsAreNotTranslated) {
  Settings().translate = [](const std::string& text) { return "<" + text + ">"; };
  Dispatch(Bytes(1));
  EXPECT_EQ(Logged(), Lines{BadSize()});
  EXPECT_EQ(Gate().Count("CLocale::"), 0u);
}

TEST_F(NotificationDispatch, AnAbsentRecordIsAFailure) {
  interact = NewInteract();
  Gate().GiveEmpty("CArpMgmt::CreateRecord");
  EXPECT_TRUE(SameBytes(GoldenReply(8), BytesOf(Dispatch(NotificationBuilder(4098)))));
  ASSERT_EQ(Logged().size(), 1u);
  EXPECT_EQ(Logged()[0].rfind("CLog::LogProblem(0x10003, [wdi,wdaokd,STDE] info=", 0), 0u);
}

TEST_F(NotificationDispatch, AnAbsentProcessPartIsAFailure) {
  interact = NewInteract();
  Gate().GiveEmpty("CArpRecord::ProcessPart");
  EXPECT_TRUE(SameBytes(GoldenReply(8), BytesOf(Dispatch(NotificationBuilder(4098)))));
  ASSERT_EQ(Logged().size(), 1u);
  EXPECT_EQ(Logged()[0].rfind("CLog::LogProblem(0x10003, [wdi,wdaokd,STDE] info=", 0), 0u);
}

TEST_F(NotificationDispatch, AFailureToWriteTheVerdictLeavesTheReplyUnjudged) {
  interact = NewInteract();
  Dispatch(NotificationBuilder(4098));
  const std::size_t lookings = Gate().Count("CBuf::GetData");
  Gate().FailAt("CBuf::GetData", lookings, Failure::kStandard);
  EXPECT_TRUE(SameBytes(GoldenReply(8), BytesOf(Dispatch(NotificationBuilder(4098)))));
  EXPECT_EQ(Logged(), Lines{Problem("[wdi,wdaokd,STDE] info=standard failure")});
}

}  // namespace fenlux::testing
