// Every fault that the driver can inject.
#include <atomic>

#include "tests/unit/emulator/emulator_test.h"

namespace fenlux::testing {
namespace {

using refhost::EmulatorFaults;
using refhost::FailingSend;
using refhost::SendFailure;
using refhost::VersionReply;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

using Faults = EmulatorTest;

TEST_F(Faults, RefusesTheFirstConnects) {
  settings.faults.refuseConnects = 2;
  for (int i = 0; i < 2; ++i) {
    const auto port = Made();
    EXPECT_EQ(FailureOf([&] { port->Connect(); }), "the driver refuses the connection");
  }
  Opened();
  EXPECT_EQ(State().refusedConnects, 2u);
  EXPECT_EQ(State().connects, 1u);
  EXPECT_EQ(State().protocolViolations, 0u);
}

TEST_F(Faults, TheScenariosFaultsOverrideThoseOfTheSettings) {
  settings.faults.refuseConnects = 7;
  settings.faults.driverVersion = 5;
  scenario.faults.refuseConnects = 0;
  const auto port = Opened();
  EXPECT_TRUE(SameBytes(Request(13, "05 00 00 00"), BytesOf(Send(*port, Request(13), Buffer(Request(13))))));
}

TEST_F(Faults, DropsEveryConnectionAfterItsLimitOfNotifications) {
  settings.faults.dropAfter = 3;
  scenario.threads = 2;
  AddNotifications(Notification(4098), 7).threads = 2;
  for (int connection = 0; connection < 2; ++connection) {
    const auto port = Opened();
    port->Wait();
    EXPECT_EQ(Totals().delivered, 3u * (static_cast<unsigned>(connection) + 1));
  }
  Opened();
  ASSERT_TRUE(Emulator().WaitScenarioFinished(kTestTimeout));
  EXPECT_EQ(Totals().delivered, 7u);
  EXPECT_TRUE(State().connected);
  EXPECT_THAT(LogLines(), Contains("Connection ended: the notification limit of the connection is reached."));
}

TEST_F(Faults, ALimitSetByAStepCountsFromThatStepAndCanBeRemoved) {
  AddNotifications(Notification(4098), 5);
  AddStep(refhost::FaultStep{{.dropAfter = 100}});
  AddStep(refhost::FaultStep{{.dropAfter = 0}});
  AddNotifications(Notification(4098), 200);
  AddStep(refhost::FaultStep{{.dropAfter = 2}});
  AddNotifications(Notification(4098), 2);
  const auto port = Opened();
  port->Wait();
  ASSERT_TRUE(Emulator().WaitScenarioFinished(kTestTimeout));
  EXPECT_EQ(Totals().delivered, 207u);
}

TEST_F(Faults, AnswersTheVersionRequestInEveryWay) {
  const auto ask = [this](VersionReply manner) {
    scenario.faults.versionReply = manner;
    DriverEmulator asked(settings, scenario);
    const auto port = asked.MakePortClient(
        kPortNameText, Buffer(ConnectContext()), 196764, [](const void*, std::uint32_t) { return Buffer(Reply(2)); },
        1);
    port->Connect();
    const auto given = Buffer(Request(13));
    auto reply = given;
    port->Send(Buffer(Request(13)), reply, true);
    EXPECT_EQ(reply == given, manner == VersionReply::kFill);
    return reply;
  };
  settings.driverVersion = 0x01020304;
  EXPECT_TRUE(SameBytes(Request(13, "04 03 02 01"), BytesOf(ask(VersionReply::kFill))));
  Bytes replaced = Bytes(65561);
  const Bytes header = FromHex("e3 4a a3 29 e7 ff 79 8f 0d 00 00 00 04 03 02 01");
  std::copy(header.begin(), header.end(), replaced.begin());
  EXPECT_TRUE(SameBytes(replaced, BytesOf(ask(VersionReply::kReplace))));
  EXPECT_EQ(BytesOf(ask(VersionReply::kShort)).size(), 65560u);
  EXPECT_EQ(ask(VersionReply::kEmpty), nullptr);
}

TEST_F(Faults, TheVersionCanChangeWhileRunning) {
  AddStep(refhost::FaultStep{{.driverVersion = 9}});
  ASSERT_TRUE(Emulator().WaitScenarioFinished(kTestTimeout));
  const auto port = Opened();
  EXPECT_TRUE(SameBytes(Request(13, "09 00 00 00"), BytesOf(Send(*port, Request(13), Buffer(Request(13))))));
}

TEST_F(Faults, FailsTheNthSendOfACommandOnce) {
  settings.faults.failSend = FailingSend{.command = 11, .nth = 2};
  const auto port = Opened();
  Send(*port, Request(11));
  Send(*port, Request(12, "00 00 00 00"));
  EXPECT_EQ(FailureOf([&] { Send(*port, Request(11)); }), "the driver fails on request");
  Send(*port, Request(11));
  EXPECT_EQ(State().dumps, 2u);
  EXPECT_EQ(State().protocolViolations, 0u);
}

TEST_F(Faults, FailsAnySendWithAnyException) {
  settings.faults.failSend = FailingSend{.failure = SendFailure::kNotAnException};
  auto port = Opened();
  EXPECT_EQ(FailureOf([&] { Send(*port, Request(11)); }), "not an exception");
  scenario.faults.failSend = FailingSend{.failure = SendFailure::kSystemError};
  DriverEmulator failing(settings, scenario);
  port = failing.MakePortClient(
      kPortNameText, Buffer(ConnectContext()), 196764, [](const void*, std::uint32_t) { return Buffer(Reply(2)); }, 1);
  port->Connect();
  EXPECT_THAT(FailureOf([&] { Send(*port, Request(11)); }), ::testing::StartsWith("the driver fails on request: "));
}

TEST_F(Faults, DelaysRequestsUntilTheConnectionEnds) {
  settings.faults.delayRequests = std::chrono::hours(1);
  const auto port = Opened();
  std::thread sender([&] { EXPECT_EQ(FailureOf([&] { Send(*port, Request(11)); }), "the driver's port is closed"); });
  port->Close();
  sender.join();
  EXPECT_EQ(State().dumps, 0u);
}

TEST_F(Faults, DelaysRequestsByTheConfiguredTime) {
  settings.faults.delayRequests = std::chrono::milliseconds(5);
  const auto port = Opened();
  const auto start = std::chrono::steady_clock::now();
  Send(*port, Request(11));
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(5));
  EXPECT_EQ(State().dumps, 1u);
}

TEST_F(Faults, DelaysRepliesPastTheDeadline) {
  settings.deadline = std::chrono::milliseconds(10);
  settings.faults.delayReplies = std::chrono::hours(1);
  AddNotifications(Notification(4098));
  AddStep(refhost::FaultStep{{.delayReplies = std::chrono::milliseconds(0)}});
  AddStep(refhost::DropStep{});
  const auto port = Opened();
  port->Wait();
  ASSERT_TRUE(Emulator().WaitScenarioFinished(kTestTimeout));
  EXPECT_EQ(Totals().late, 1u);
}

TEST_F(Faults, HoldsOneReplyForTheConfiguredTime) {
  AddNotifications(Notification(4098)).holdReply = std::chrono::milliseconds(5);
  Opened();
  ASSERT_TRUE(Emulator().WaitScenarioFinished(kTestTimeout));
  EXPECT_EQ(Totals().answered, 1u);
  EXPECT_GE(Totals().latency.max, std::chrono::milliseconds(5));
}

TEST_F(Faults, HoldsAReplyUntilTheConnectionEnds) {
  settings.deadline = std::chrono::hours(1);
  scenario.threads = 2;
  auto& held = AddNotifications(Notification(4098));
  held.holdUntilEnd = true;
  held.inBackground = true;
  AddNotifications(Notification(4099), 10);
  AddStep(refhost::DropStep{});
  const auto port = Opened();
  port->Wait();
  ASSERT_TRUE(Emulator().WaitScenarioFinished(kTestTimeout));
  EXPECT_EQ(Totals().answered, 10u);
  EXPECT_EQ(Totals().Unjudged(UnjudgedCause::kConnectionEnded), 1u);
}

TEST_F(Faults, AHeldReplyThatReachesTheLimitEndsItsConnection) {
  settings.faults.dropAfter = 1;
  AddNotifications(Notification(4098)).holdUntilEnd = true;
  const auto port = Opened();
  port->Wait();
  ASSERT_TRUE(Emulator().WaitScenarioFinished(kTestTimeout));
  EXPECT_EQ(Totals().Unjudged(UnjudgedCause::kConnectionEnded), 1u);
}

TEST_F(Faults, AwaitsARequestOfTheModule) {
  AddStep(refhost::AwaitRequestStep{.command = 11, .times = 2, .limit = kTestTimeout / 2});
  AddNotifications(Notification(4098));
  const auto port = Opened();
  Send(*port, Request(11));
  EXPECT_EQ(Totals().delivered, 0u);
  Send(*port, Request(11));
  ASSERT_TRUE(Emulator().WaitScenarioFinished(kTestTimeout));
  EXPECT_EQ(Totals().delivered, 1u);
  EXPECT_THAT(State().violationTexts, IsEmpty());
}

TEST_F(Faults, ARequestThatDoesNotArriveIsAViolation) {
  AddStep(refhost::AwaitRequestStep{.command = 24, .times = 1, .limit = std::chrono::milliseconds(1)});
  ASSERT_TRUE(Emulator().WaitScenarioFinished(kTestTimeout));
  EXPECT_THAT(State().violationTexts, ElementsAre("step 1 timed out waiting for request 24"));
}

TEST_F(Faults, PausesEndWithTheEmulator) {
  AddStep(refhost::PauseStep{std::chrono::hours(1)});
  Emulator();
  Emulator().Stop();
  EXPECT_FALSE(Emulator().ScenarioFinished());
}

}  // namespace
}  // namespace fenlux::testing
