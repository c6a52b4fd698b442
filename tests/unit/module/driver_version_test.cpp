// The version request and the handshake around it.
#include "tests/unit/module/module_test.h"

namespace fenlux::testing {
namespace {

const Lines kSentOnce{"CUtility::CreateBuffer(true, 65561, false)", "CUtility::CreateBuffer(true, 65561, false)",
                      "CPortClient::Send(13, reply, true)"};
constexpr char kGoldenRequest13[] = "e3 4a a3 29 e7 ff 79 8f  0d 00 00 00";

class DriverVersion : public ModuleTest {
 protected:
  // Answers every request with a buffer of this size; bytes 12 to 15 hold 0x01020304.
  void AnswerWith(std::size_t size) {
    Settings().answer = [this, size](const std::shared_ptr<CBuf>&, std::shared_ptr<CBuf>& reply) {
      Bytes bytes(size, 0xEE);
      const Bytes version = FromHex("04 03 02 01");
      for (std::size_t i = 0; i < version.size() && 12 + i < size; ++i) bytes[12 + i] = version[i];
      reply = host.MakeBuffer(std::move(bytes));
    };
  }
};

class DriverVersionFailure : public DriverVersion, public ::testing::WithParamInterface<Failure> {};

}  // namespace

TEST_F(DriverVersion, SendsRequest13WithAFullSizeRequest13AsReply) {
  const auto interact = ReadyInteract();
  Bytes offered;
  Settings().answer = [&offered](const std::shared_ptr<CBuf>&, std::shared_ptr<CBuf>& reply) {
    offered = BytesOf(reply);
  };
  interact->GetDriverVersion();
  ASSERT_EQ(host.Requests().size(), 1u);
  EXPECT_TRUE(SameBytes(GoldenRequest(kGoldenRequest13), host.Requests()[0].bytes));
  EXPECT_TRUE(SameBytes(GoldenRequest(kGoldenRequest13), offered));
}

TEST_F(DriverVersion, ChecksTheSizeOfTheReplyBeforeItsBytes) {
  const auto interact = ReadyInteract();
  EXPECT_EQ(interact->GetDriverVersion(), 19072701u);
  EXPECT_EQ(Calls(), kSentOnce);
  const Lines calls = Gate().Entries();
  ASSERT_GE(calls.size(), 3u);
  EXPECT_EQ((Lines(calls.end() - 3, calls.end())),
            (Lines{"CPortClient::Send(13, reply, true)", "CBuf::GetSize()", "CBuf::GetData()"}));
}

TEST_F(DriverVersion, AReplyOf65561BytesIsAccepted) {
  const auto interact = ReadyInteract();
  AnswerWith(65561);
  EXPECT_EQ(interact->GetDriverVersion(), 0x01020304u);
}

TEST_F(DriverVersion, ALongerReplyIsAccepted) {
  const auto interact = ReadyInteract();
  AnswerWith(70000);
  EXPECT_EQ(interact->GetDriverVersion(), 0x01020304u);
}

TEST_F(DriverVersion, AReplyThatIsOneByteShortGives0WithoutALogLine) {
  const auto interact = ReadyInteract();
  AnswerWith(65560);
  EXPECT_EQ(interact->GetDriverVersion(), 0u);
  EXPECT_EQ(Gate().Entries().back(), "CBuf::GetSize()") << "the bytes of a short reply are not read";
  EXPECT_TRUE(Logged().empty());
}

TEST_F(DriverVersion, AnEmptyReplyBufferGives0) {
  const auto interact = ReadyInteract();
  AnswerWith(0);
  EXPECT_EQ(interact->GetDriverVersion(), 0u);
  EXPECT_TRUE(Logged().empty());
}

TEST_F(DriverVersion, AClearedReplyHandleGives0WithoutALogLine) {
  const auto interact = ReadyInteract();
  Settings().answer = [](const std::shared_ptr<CBuf>&, std::shared_ptr<CBuf>& reply) { reply.reset(); };
  EXPECT_EQ(interact->GetDriverVersion(), 0u);
  EXPECT_TRUE(Logged().empty());
}

TEST_F(DriverVersion, WithoutAPortClientItGives0AndOneLine) {
  const auto interact = NewInteract();
  EXPECT_EQ(interact->GetDriverVersion(), 0u);
  ASSERT_EQ(Logged().size(), 1u);
  EXPECT_EQ(Logged()[0].rfind("CLog::LogProblem(0x10003, [wdi,gdv,STDE] info=", 0), 0u) << Logged()[0];
}

TEST_F(DriverVersion, WithoutARequestBufferItGives0AndOneLine) {
  const auto interact = ReadyInteract();
  Gate().GiveEmpty("CUtility::CreateBuffer");
  EXPECT_EQ(interact->GetDriverVersion(), 0u);
  ASSERT_EQ(Logged().size(), 1u);
  EXPECT_EQ(Logged()[0].rfind("CLog::LogProblem(0x10003, [wdi,gdv,STDE] info=", 0), 0u) << Logged()[0];
}

TEST_P(DriverVersionFailure, AFailedSendGives0AndOneLine) {
  const auto interact = ReadyInteract();
  Gate().FailAt("CPortClient::Send", 1, GetParam());
  EXPECT_EQ(interact->GetDriverVersion(), 0u);
  EXPECT_EQ(Logged(), Lines{Problem(Report("wdi,gdv", GetParam()))});
}

TEST_P(DriverVersionFailure, AFailingLogIsSwallowed) {
  const auto interact = ReadyInteract();
  Gate().FailAt("CPortClient::Send", 1, GetParam());
  Gate().FailAlways("CLog::LogProblem", GetParam());
  EXPECT_EQ(interact->GetDriverVersion(), 0u);
}

INSTANTIATE_TEST_SUITE_P(Failures, DriverVersionFailure, ::testing::ValuesIn(kAllFailures),
                         [](const auto& instance) { return "F" + std::to_string(static_cast<int>(instance.param)); });

// ---------------------------------------------------------------- the handshake

namespace {
class Handshake : public DriverVersion {
 protected:
  // The calls after the version request.
  Lines CallsAfterTheRequest() const {
    Lines calls = Calls();
    EXPECT_GE(calls.size(), kSentOnce.size());
    calls.erase(calls.begin(), calls.begin() + static_cast<std::ptrdiff_t>(kSentOnce.size()));
    return calls;
  }
};
}  // namespace

TEST_F(Handshake, ReportsAndLogsBothVersions) {
  const auto interact = ReadyInteract();
  interact->CheckDriverVersion();
  EXPECT_EQ(CallsAfterTheRequest(),
            (Lines{"CCfg::ReportDriverVersion(1, true, 19072701)", "CUtility::QueryVersionFlag()",
                   Translation("Current driver version="), Event("Current driver version=19072701"),
                   Translation("Current fenlux version="), Event("Current fenlux version=19072701")}));
}

TEST_F(Handshake, WarnsIfTheVersionFlagMakesTheModuleNewer) {
  const auto interact = ReadyInteract();
  Settings().versionFlag = true;
  interact->CheckDriverVersion();
  EXPECT_EQ(CallsAfterTheRequest(),
            (Lines{"CCfg::ReportDriverVersion(1, true, 19072701)", "CUtility::QueryVersionFlag()",
                   Translation("Current driver version="), Event("Current driver version=19072701"),
                   Translation("Current fenlux version="), Event("Current fenlux version=19072702"),
                   Translation("Driver version and fenlux version is NOT the same!"),
                   "CLog::LogWarning(0x10003, Driver version and fenlux version is NOT the same!)"}));
}

TEST_F(Handshake, WarnsIfTheDriverIsNewer) {
  const auto interact = ReadyInteract();
  Settings().driverVersion = 4294967295u;
  interact->CheckDriverVersion();
  EXPECT_EQ(Logged(), (Lines{Event("Current driver version=4294967295"), Event("Current fenlux version=19072701"),
                             "CLog::LogWarning(0x10003, Driver version and fenlux version is NOT the same!)"}));
}

TEST_F(Handshake, DoesNotWarnIfTheFlagMakesTheVersionsEqual) {
  const auto interact = ReadyInteract();
  Settings().versionFlag = true;
  Settings().driverVersion = 19072702;
  interact->CheckDriverVersion();
  EXPECT_EQ(Logged(), (Lines{Event("Current driver version=19072702"), Event("Current fenlux version=19072702")}));
}

TEST_F(Handshake, AShortVersionReplyIsVersion0AndAWarning) {
  const auto interact = ReadyInteract();
  AnswerWith(65560);
  interact->CheckDriverVersion();
  EXPECT_EQ(Logged(), (Lines{Event("Current driver version=0"), Event("Current fenlux version=19072701"),
                             "CLog::LogWarning(0x10003, Driver version and fenlux version is NOT the same!)"}));
  EXPECT_EQ(Gate().Count("CCfg::ReportDriverVersion(1, true, 0)"), 1u);
}

TEST_F(Handshake, ChangesNoState) {
  const auto interact = ReadyInteract();
  Settings().driverVersion = 1;
  interact->CheckDriverVersion();
  EXPECT_TRUE(interact->IsDriverReady());
  EXPECT_FALSE(interact->IsStopRequested());
}

TEST_F(Handshake, TranslatesTheTextsAndAppendsTheNumbers) {
  const auto interact = ReadyInteract();
  Settings().versionFlag = true;
  Settings().translate = [](const std::string& text) { return "<" + text + ">"; };
  interact->CheckDriverVersion();
  EXPECT_EQ(Logged(), (Lines{Event("<Current driver version=>19072701"), Event("<Current fenlux version=>19072702"),
                             "CLog::LogWarning(0x10003, <Driver version and fenlux version is NOT the same!>)"}));
}

}  // namespace fenlux::testing
