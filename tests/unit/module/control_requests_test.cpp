// The requests that change one switch of the driver, the debug dump and the configuration block.
#include "tests/unit/module/module_test.h"

namespace fenlux::testing {
namespace {

class ControlRequests : public ModuleTest {
 protected:
  // Expects exactly one request: it starts with these bytes, and the rest of the buffer is untouched.
  void ExpectOneRequest(std::string_view digits) {
    const auto sent = host.Requests();
    ASSERT_EQ(sent.size(), 1u);
    EXPECT_TRUE(SameBytes(GoldenRequest(digits), sent[0].bytes));
    EXPECT_FALSE(sent[0].wantsReply);
    host.ClearRequests();
  }
  Lines SentAs(int command) const {
    return {"CUtility::CreateBuffer(true, 65561, false)",
            "CPortClient::Send(" + std::to_string(command) + ", no reply, true)"};
  }
};

}  // namespace

// ---------------------------------------------------------------- request 6

TEST_F(ControlRequests, GrspMode1SendsSwitch0AndMode3SendsSwitch1) {
  const auto interact = ReadyInteract();
  EXPECT_EQ(interact->SetGrspSwitch(true, 1), 1u);
  EXPECT_EQ(Calls(), SentAs(6));
  ExpectOneRequest("e3 4a a3 29 e7 ff 79 8f  06 00 00 00  01 00 00 00  00");
  EXPECT_EQ(interact->SetGrspSwitch(true, 3), 3u);
  ExpectOneRequest("e3 4a a3 29 e7 ff 79 8f  06 00 00 00  01 00 00 00  01");
}

TEST_F(ControlRequests, GrspCarriesClientType2IfTheFlagIsSet) {
  Settings().clientTypeFlag = true;
  const auto interact = ReadyInteract();
  interact->SetGrspSwitch(true, 3);
  ExpectOneRequest("e3 4a a3 29 e7 ff 79 8f  06 00 00 00  02 00 00 00  01");
}

TEST_F(ControlRequests, GrspRefusesUnsupportedArgumentsAndSendsNothing) {
  const auto interact = ReadyInteract();
  for (const std::uint32_t mode : {0u, 1u, 2u, 3u, 4u}) {
    EXPECT_EQ(RuntimeErrorOf([&] { interact->SetGrspSwitch(false, mode); }), "[wdi,grsp]Not implemented.");
  }
  EXPECT_EQ(RuntimeErrorOf([&] { interact->SetGrspSwitch(true, 2); }), "[wdi,granra]Not supported-1.");
  for (const std::uint32_t mode : {0u, 4u, 5u, 0xFFFFFFFFu}) {
    EXPECT_EQ(RuntimeErrorOf([&] { interact->SetGrspSwitch(true, mode); }), "[wdi,granra]Not supported-2.");
  }
  EXPECT_TRUE(Gate().Entries().empty()) << "refused before a request is built";
}

// ---------------------------------------------------------------- request 4

TEST_F(ControlRequests, GrpmMode1SendsSwitch1AndMode3SendsSwitch0) {
  const auto interact = ReadyInteract();
  EXPECT_EQ(interact->SetGrpmSwitch(true, 1), 1u);
  EXPECT_EQ(Calls(), SentAs(4));
  ExpectOneRequest("e3 4a a3 29 e7 ff 79 8f  04 00 00 00  01 00 00 00  01");
  EXPECT_EQ(interact->SetGrpmSwitch(true, 3), 1u) << "the result is 1, not the mode";
  ExpectOneRequest("e3 4a a3 29 e7 ff 79 8f  04 00 00 00  01 00 00 00  00");
}

TEST_F(ControlRequests, GrpmCarriesClientType2IfTheFlagIsSet) {
  Settings().clientTypeFlag = true;
  const auto interact = ReadyInteract();
  interact->SetGrpmSwitch(true, 1);
  ExpectOneRequest("e3 4a a3 29 e7 ff 79 8f  04 00 00 00  02 00 00 00  01");
}

TEST_F(ControlRequests, GrpmRefusesUnsupportedArgumentsAndSendsNothing) {
  const auto interact = ReadyInteract();
  EXPECT_EQ(RuntimeErrorOf([&] { interact->SetGrpmSwitch(false, 1); }), "[wdi,grpm]Not implemented.");
  EXPECT_EQ(RuntimeErrorOf([&] { interact->SetGrpmSwitch(false, 9); }), "[wdi,grpm]Not implemented.");
  EXPECT_EQ(RuntimeErrorOf([&] { interact->SetGrpmSwitch(true, 2); }), "[wdi,grpm]Not supported-1.");
  for (const std::uint32_t mode : {0u, 4u, 0xFFFFFFFFu}) {
    EXPECT_EQ(RuntimeErrorOf([&] { interact->SetGrpmSwitch(true, mode); }), "[wdi,grpm]Not supported-2.");
  }
  EXPECT_TRUE(Gate().Entries().empty());
}

// ---------------------------------------------------------------- request 8

TEST_F(ControlRequests, GrdtoSendsTheValueAndReturns0) {
  const auto interact = ReadyInteract();
  EXPECT_EQ(interact->SetGrdtoValue(true, 0xA1B2C3D4), 0u);
  EXPECT_EQ(Calls(), SentAs(8));
  ExpectOneRequest("e3 4a a3 29 e7 ff 79 8f  08 00 00 00  d4 c3 b2 a1");
}

TEST_F(ControlRequests, GrdtoIsRefusedIfNotImplemented) {
  const auto interact = ReadyInteract();
  EXPECT_EQ(RuntimeErrorOf([&] { interact->SetGrdtoValue(false, 1); }), "[wdi,grdto]Not implemented.");
  EXPECT_TRUE(Gate().Entries().empty());
}

// ---------------------------------------------------------------- request 9

TEST_F(ControlRequests, GrharaSends0ForOnAnd1ForOff) {
  const auto interact = ReadyInteract();
  EXPECT_TRUE(interact->SetGrharaSwitch(true, true));
  EXPECT_EQ(Calls(), SentAs(9));
  ExpectOneRequest("e3 4a a3 29 e7 ff 79 8f  09 00 00 00  00");
  EXPECT_TRUE(interact->SetGrharaSwitch(true, false));
  ExpectOneRequest("e3 4a a3 29 e7 ff 79 8f  09 00 00 00  01");
}

TEST_F(ControlRequests, GrharaIsRefusedIfNotImplemented) {
  const auto interact = ReadyInteract();
  EXPECT_EQ(RuntimeErrorOf([&] { interact->SetGrharaSwitch(false, true); }), "[wdi,grhara]Not implemented.");
  EXPECT_TRUE(Gate().Entries().empty());
}

// ---------------------------------------------------------------- request 11

TEST_F(ControlRequests, TheDebugDumpSendsOnlyItsCodeAndReturnsAdvice) {
  const auto interact = ReadyInteract();
  EXPECT_EQ(interact->DumpDriverDebugInfo(), "Please use Dbgview to get result.");
  Lines expected = SentAs(11);
  expected.push_back(Translation("Please use Dbgview to get result."));
  EXPECT_EQ(Calls(), expected);
  ExpectOneRequest("e3 4a a3 29 e7 ff 79 8f  0b 00 00 00");
}

TEST_F(ControlRequests, TheAdviceIsTranslated) {
  const auto interact = ReadyInteract();
  Settings().translate = [](const std::string& text) { return "<" + text + ">"; };
  EXPECT_EQ(interact->DumpDriverDebugInfo(), "<Please use Dbgview to get result.>");
}

// ---------------------------------------------------------------- request 24

TEST_F(ControlRequests, TheConfigurationBlockFollowsTheHeader) {
  const auto interact = ReadyInteract();
  host.SetDriverConfigBlock(host.MakeBuffer(FromHex("de ad be ef 01")));
  interact->SendDriverConfig();
  EXPECT_EQ(Calls(), (Lines{"CUtility::CreateBuffer(true, 65561, false)", "CCfgEx::GetDriverConfigBlock()",
                            "CPortClient::Send(24, no reply, true)"}));
  ExpectOneRequest("e3 4a a3 29 e7 ff 79 8f  18 00 00 00  de ad be ef 01");
}

TEST_F(ControlRequests, WithoutAConfigurationBlockTheRestOfTheBufferIsUntouched) {
  const auto interact = ReadyInteract();
  interact->SendDriverConfig();
  ExpectOneRequest("e3 4a a3 29 e7 ff 79 8f  18 00 00 00");
}

TEST_F(ControlRequests, AnEmptyConfigurationBlockIsSentToo) {
  const auto interact = ReadyInteract();
  host.SetDriverConfigBlock(host.MakeBuffer({}));
  interact->SendDriverConfig();
  ExpectOneRequest("e3 4a a3 29 e7 ff 79 8f  18 00 00 00");
}

TEST_F(ControlRequests, TheLargestConfigurationBlockFillsTheRequestToItsLastByte) {
  const auto interact = ReadyInteract();
  host.SetDriverConfigBlock(host.MakeBuffer(Bytes(65549, 0x5A)));
  interact->SendDriverConfig();
  const auto sent = host.Requests();
  ASSERT_EQ(sent.size(), 1u);
  EXPECT_TRUE(SameBytes(Golden(65561).Hex(0, "e3 4a a3 29 e7 ff 79 8f 18 00 00 00").Put(12, Bytes(65549, 0x5A)).Get(),
                        sent[0].bytes));
}

TEST_F(ControlRequests, AConfigurationBlockThatDoesNotFitIsRefusedBeforeCopying) {
  const auto interact = ReadyInteract();
  host.SetDriverConfigBlock(host.MakeBuffer(Bytes(65550, 0x5A)));
  EXPECT_FALSE(RuntimeErrorOf([&] { interact->SendDriverConfig(); }).empty());
  EXPECT_TRUE(host.Requests().empty());
}

TEST_F(ControlRequests, TheConfigurationBlockIsCheckedAgainstTheActualBufferSize) {
  const auto interact = ReadyInteract();
  Settings().givenSize = [](std::uint32_t) { return 12u + 10u; };
  host.SetDriverConfigBlock(host.MakeBuffer(Bytes(10, 0x5A)));
  interact->SendDriverConfig();
  const auto sent = host.Requests();
  ASSERT_EQ(sent.size(), 1u);
  EXPECT_TRUE(SameBytes(Golden(22).Hex(0, "e3 4a a3 29 e7 ff 79 8f 18 00 00 00").Put(12, Bytes(10, 0x5A)).Get(),
                        sent[0].bytes));
  Forget();
  host.SetDriverConfigBlock(host.MakeBuffer(Bytes(11, 0x5A)));
  EXPECT_EQ(RuntimeErrorOf([&] { interact->SendDriverConfig(); }), "[wdi] configuration block too large!");
  // A buffer larger than requested does not make the request longer.
  Settings().givenSize = [](std::uint32_t asked) { return asked + 100; };
  host.SetDriverConfigBlock(host.MakeBuffer(Bytes(65550, 0x5A)));
  EXPECT_EQ(RuntimeErrorOf([&] { interact->SendDriverConfig(); }), "[wdi] configuration block too large!");
  EXPECT_TRUE(host.Requests().empty());
}

// ---------------------------------------------------------------- all of them

namespace {

struct Operation {
  const char* name;
  std::function<void(CKDIBase&)> run;
};

const Operation kSendingOperations[] = {
    {"SetGrspSwitch", [](CKDIBase& i) { i.SetGrspSwitch(true, 1); }},
    {"SetGrpmSwitch", [](CKDIBase& i) { i.SetGrpmSwitch(true, 1); }},
    {"SetGrdtoValue", [](CKDIBase& i) { i.SetGrdtoValue(true, 1); }},
    {"SetGrharaSwitch", [](CKDIBase& i) { i.SetGrharaSwitch(true, true); }},
    {"DumpDriverDebugInfo", [](CKDIBase& i) { i.DumpDriverDebugInfo(); }},
    {"SendDriverConfig", [](CKDIBase& i) { i.SendDriverConfig(); }},
    {"EnterNetControlMode1", [](CKDIBase& i) { i.EnterNetControlMode1(); }},
    {"EnterNetControlMode3", [](CKDIBase& i) { i.EnterNetControlMode3(); }},
    {"ApplyNetControlItems", [](CKDIBase& i) { i.ApplyNetControlItems(true, nullptr); }},
    {"AddNetControlItems", [](CKDIBase& i) { i.AddNetControlItems(1, nullptr); }},
};

class SendingOperation : public ModuleTest, public ::testing::WithParamInterface<Operation> {};

}  // namespace

TEST_P(SendingOperation, SendsRegardlessOfTheFlags) {
  const auto interact = ReadyInteract();
  interact->StopInteract();
  Forget();
  GetParam().run(*interact);
  EXPECT_GT(host.Requests().size(), 0u);
}

TEST_P(SendingOperation, WithoutAPortClientIsARuntimeErrorAndNoCrash) {
  const auto interact = NewInteract();
  EXPECT_FALSE(RuntimeErrorOf([&] { GetParam().run(*interact); }).empty());
}

TEST_P(SendingOperation, WithoutABufferIsARuntimeErrorAndNoCrash) {
  const auto interact = ReadyInteract();
  Gate().GiveEmpty("CUtility::CreateBuffer");
  EXPECT_FALSE(RuntimeErrorOf([&] { GetParam().run(*interact); }).empty());
  EXPECT_TRUE(host.Requests().empty());
}

TEST_P(SendingOperation, PropagatesAFailedSend) {
  const auto interact = ReadyInteract();
  for (const Failure failure : kAllFailures) {
    Gate().FailAt("CPortClient::Send", 1, failure);
    EXPECT_TRUE(Propagates(failure, [&] { GetParam().run(*interact); })) << NameOf(failure);
  }
  EXPECT_TRUE(Logged().empty());
}

TEST_P(SendingOperation, IgnoresTheDriversAnswer) {
  const auto interact = ReadyInteract();
  Settings().answer = [this](const std::shared_ptr<CBuf>&, std::shared_ptr<CBuf>& reply) {
    reply = host.MakeBuffer(Bytes(3, 1));
  };
  GetParam().run(*interact);
  EXPECT_TRUE(Logged().empty());
}

INSTANTIATE_TEST_SUITE_P(Operations, SendingOperation, ::testing::ValuesIn(kSendingOperations),
                         [](const auto& instance) { return instance.param.name; });

}  // namespace fenlux::testing
