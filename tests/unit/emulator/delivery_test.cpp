// Every notification has exactly one outcome, whichever party is first.
#include <atomic>
#include <set>
#include <stdexcept>

#include "tests/unit/emulator/emulator_test.h"

namespace fenlux::testing {
namespace {

using refhost::BuildNotification;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class Delivery : public EmulatorTest {
 protected:
  void PlayToTheEnd(std::uint32_t clientType = 1) {
    Opened(clientType);
    ASSERT_TRUE(Emulator().WaitScenarioFinished(kTestTimeout));
  }
};

TEST_F(Delivery, PassesEveryMessageUnchangedToTheHandler) {
  const Bytes message = BuildNotification({.code = 4098, .processId = 9, .path = u"C:\\x"});
  std::vector<Bytes> seen;
  scenario.threads = 1;
  handler = [&seen](const Bytes& bytes) {
    seen.push_back(bytes);
    return Buffer(Reply(4));
  };
  AddNotifications(message, 2);
  AddNotifications(Bytes());
  std::get<refhost::NotifyStep>(scenario.steps[1].action).expectedVerdict = 8;
  PlayToTheEnd();
  EXPECT_THAT(seen, ElementsAre(message, message, Bytes()));
  const EmulatorTotals totals = Totals();
  EXPECT_EQ(totals.delivered, 3u);
  EXPECT_EQ(totals.byCode, (std::map<std::uint32_t, std::uint64_t>{{0, 1}, {4098, 2}}));
  EXPECT_EQ(totals.byVerdict, (std::map<std::uint32_t, std::uint64_t>{{4, 2}}));
  EXPECT_EQ(totals.Unjudged(UnjudgedCause::kMalformedReply), 1u);  // verdict 4, although it cannot be judged
  EXPECT_EQ(totals.latency.count, 2u);
  EXPECT_GT(totals.latency.max, std::chrono::nanoseconds(0));
}

TEST_F(Delivery, DeliversEveryMessageOnSeveralThreads) {
  std::mutex mutex;
  std::set<std::thread::id> threads;
  scenario.threads = 3;
  handler = [&](const Bytes&) {
    {
      const std::lock_guard lock(mutex);
      threads.insert(std::this_thread::get_id());
    }
    gate->Pass();
    return Buffer(Reply(2));
  };
  AddNotifications(Notification(4098), 300).threads = 3;
  Opened();
  gate->AwaitArrivals(3);
  EXPECT_EQ(Totals().inFlight, 3u);
  EXPECT_TRUE(Totals().AddsUp());
  gate->Open();
  ASSERT_TRUE(Emulator().WaitScenarioFinished(kTestTimeout));
  EXPECT_EQ(threads.size(), 3u);
  EXPECT_EQ(Totals().answered, 300u);
}

TEST_F(Delivery, ExpectsNoReplyToCode4113) {
  handler = [](const Bytes&) { return nullptr; };
  AddNotifications(Notification(4113)).expectedVerdict = 0;
  PlayToTheEnd();
  EXPECT_EQ(Totals().unansweredByDesign, 1u);
  EXPECT_EQ(Totals().latency.count, 1u);
  EXPECT_THAT(State().violationTexts, IsEmpty());
}

TEST_F(Delivery, AcceptsOnlyTheUnjudgedReplyToCode4113) {
  std::atomic<std::uint32_t> verdict{8};
  handler = [&verdict](const Bytes&) { return Buffer(Reply(verdict--)); };
  scenario.threads = 1;
  AddNotifications(Notification(4113), 2);
  PlayToTheEnd();
  EXPECT_EQ(Totals().byVerdict, (std::map<std::uint32_t, std::uint64_t>{{8, 1}}));
  EXPECT_EQ(Totals().Unjudged(UnjudgedCause::kMalformedReply), 1u);
  EXPECT_THAT(State().violationTexts, ElementsAre("notification 4113: a reply with verdict 7 where none is expected"));
}

TEST_F(Delivery, CountsAnEmptyReplyAsLost) {
  handler = [](const Bytes&) { return nullptr; };
  AddNotifications(Notification(4098));
  PlayToTheEnd();
  EXPECT_EQ(Totals().lost, 1u);
  EXPECT_EQ(Totals().Unjudged(UnjudgedCause::kEmptyReply), 1u);
  EXPECT_THAT(State().violationTexts, IsEmpty());
}

TEST_F(Delivery, SurvivesAThrowingHandler) {
  std::atomic<int> calls{0};
  handler = [&calls](const Bytes&) -> std::shared_ptr<CBuf> {
    if (calls++ == 0) throw std::runtime_error("no buffer");
    throw 5;
  };
  AddNotifications(Notification(4098), 2);
  PlayToTheEnd();
  EXPECT_EQ(Totals().Unjudged(UnjudgedCause::kHandlerThrew), 2u);
  EXPECT_THAT(State().violationTexts, IsEmpty());
}

TEST_F(Delivery, CountsAMalformedReplyAsLostAndAsAViolation) {
  handler = [](const Bytes&) { return Buffer(Bytes(155)); };
  AddNotifications(Notification(4098));
  PlayToTheEnd();
  EXPECT_EQ(Totals().Unjudged(UnjudgedCause::kMalformedReply), 1u);
  EXPECT_THAT(State().violationTexts, ElementsAre("notification 4098: a reply of 155 bytes"));
  EXPECT_THAT(LogLines(), Contains("Protocol violation: notification 4098: a reply of 155 bytes."));
}

TEST_F(Delivery, ChecksVerdictsAgainstTheClientType) {
  handler = [](const Bytes&) { return Buffer(Reply(3)); };
  AddNotifications(BuildNotification({.code = 4098, .oplock = 1}));
  PlayToTheEnd(2);
  EXPECT_THAT(State().violationTexts, ElementsAre("notification 4098: a reply with verdict 3 for client type 2"));
}

TEST_F(Delivery, AnUnexpectedVerdictIsAViolationOfTheScenario) {
  handler = [](const Bytes&) { return Buffer(Reply(6, {1})); };
  AddNotifications(Notification(4098)).expectedVerdict = 6;
  AddNotifications(Notification(4099)).expectedVerdict = 0;
  PlayToTheEnd();
  EXPECT_THAT(State().violationTexts, ElementsAre("notification 4099: verdict 6 where 0 was expected"));
  EXPECT_EQ(Totals().answered, 2u);
}

TEST_F(Delivery, AVerdictAfterTheDeadlineIsLateAndDropped) {
  settings.deadline = std::chrono::milliseconds(20);
  handler = [gate = gate](const Bytes&) {
    gate->Pass();
    return Buffer(Reply(2));
  };
  AddNotifications(Notification(4098));
  Opened();
  ASSERT_TRUE(Emulator().WaitScenarioFinished(kTestTimeout));  // while the handler is still running
  EXPECT_EQ(Totals().late, 1u);
  EXPECT_EQ(Totals().inFlight, 0u);
  EXPECT_EQ(Totals().Unjudged(UnjudgedCause::kLate), 1u);
  gate->Open();
  Emulator().Stop();
  EXPECT_EQ(Totals().late, 1u);
  EXPECT_EQ(Totals().answered, 0u);
  EXPECT_EQ(Totals().latency.count, 0u);
}

TEST_F(Delivery, OneLateHandlerDoesNotDelayTheOthers) {
  std::atomic<int> calls{0};
  settings.deadline = std::chrono::milliseconds(1000);
  scenario.threads = 2;
  handler = [&](const Bytes&) {
    if (calls++ == 0) gate->Pass();
    return Buffer(Reply(2));
  };
  AddNotifications(Notification(4098), 50).threads = 2;
  Opened();
  ASSERT_TRUE(Emulator().WaitScenarioFinished(kTestTimeout));
  EXPECT_GE(Totals().late, 1u);
  EXPECT_EQ(Totals().late + Totals().answered, 50u);
  EXPECT_LE(Totals().late, 5u) << "more than a busy machine can delay";
  const bool busy = Totals().late > 1;
  gate->Open();
  Emulator().Stop();
  if (busy) GTEST_SKIP() << "the machine is so busy that more were late";
}

TEST_F(Delivery, AReplyAfterTheConnectionEndedIsLost) {
  handler = [gate = gate](const Bytes&) {
    gate->Pass();
    return Buffer(Reply(2));
  };
  AddNotifications(Notification(4098)).inBackground = true;
  AddStep(refhost::DropStep{});
  const auto port = Opened();
  gate->AwaitArrivals(1);
  port->Wait();
  ASSERT_TRUE(Emulator().WaitScenarioFinished(kTestTimeout));
  EXPECT_EQ(Totals().Unjudged(UnjudgedCause::kConnectionEnded), 1u);
  gate->Open();
}

TEST_F(Delivery, StopEndsPendingAnswersWithoutWaitingForAHungHandler) {
  const auto done = std::make_shared<Gate>();
  settings.stopGrace = std::chrono::milliseconds(1);
  handler = [gate = gate, done](const Bytes&) {
    gate->Pass();
    done->Open();
    return Buffer(Reply(2));
  };
  AddNotifications(Notification(4098));
  Opened();
  gate->AwaitArrivals(1);
  Emulator().Stop();
  EXPECT_EQ(Totals().Unjudged(UnjudgedCause::kStopped) + Totals().Unjudged(UnjudgedCause::kConnectionEnded), 1u);
  EXPECT_EQ(Totals().Unjudged(UnjudgedCause::kStopped), 1u);
  EXPECT_TRUE(Totals().AddsUp());
  EXPECT_FALSE(Emulator().WaitScenarioFinished(kTestTimeout));
  gate->Open();
  done->Pass();
}

TEST_F(Delivery, WaitsForStartAndForTheNextConnection) {
  AddNotifications(Notification(4098));
  AddStep(refhost::DropStep{});
  AddNotifications(Notification(4099));
  auto port = Made();
  EXPECT_EQ(Totals().delivered, 0u);
  port->Connect();
  EXPECT_EQ(Totals().delivered, 0u);
  port->Start();
  port->Wait();
  EXPECT_FALSE(Emulator().ScenarioFinished());
  EXPECT_EQ(Totals().delivered, 1u);
  PlayToTheEnd();
  EXPECT_EQ(Totals().byCode, (std::map<std::uint32_t, std::uint64_t>{{4098, 1}, {4099, 1}}));
  EXPECT_THAT(LogLines(), Contains("Connection ended: step 2 drops it."));
}

TEST_F(Delivery, RepeatsTheScenario) {
  scenario.repeat = 3;
  AddNotifications(Notification(4098), 2);
  PlayToTheEnd();
  EXPECT_EQ(Totals().answered, 6u);
}

TEST_F(Delivery, PlaysAnEndlessScenarioUntilStopped) {
  scenario.repeat = 0;
  std::atomic<int> calls{0};
  handler = [&](const Bytes&) {
    if (++calls == 10) gate->Open();
    return Buffer(Reply(2));
  };
  AddNotifications(Notification(4098));
  Opened();
  gate->Pass();
  EXPECT_FALSE(Emulator().ScenarioFinished());
  Emulator().Stop();
}

TEST_F(Delivery, RespectsTheRate) {
  scenario.threads = 2;
  auto& step = AddNotifications(Notification(4098), 21);
  step.ratePerSecond = 1000;
  step.threads = 2;
  const auto start = std::chrono::steady_clock::now();
  PlayToTheEnd();
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(19));
}

TEST_F(Delivery, AnEmptyScenarioIsFinishedAtOnce) {
  EXPECT_TRUE(Emulator().WaitScenarioFinished(kTestTimeout));
  EXPECT_EQ(Totals().delivered, 0u);
}

TEST_F(Delivery, ReportsTheEndOfTheScenarioToTheHost) {
  const DriverEmulator signalling(settings, scenario,
                                  {.log = {}, .scenarioFinished = [gate = gate] { gate->Open(); }, .decisions = {}});
  gate->Pass();
  EXPECT_TRUE(signalling.ScenarioFinished());
}

}  // namespace
}  // namespace fenlux::testing
