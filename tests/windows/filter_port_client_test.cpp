// The port client over the Filter Manager: connecting, requests, and delivery of messages.
#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <stdexcept>
#include <thread>
#include <vector>

#include "tests/windows/filter_port_fixture.h"

namespace fenlux::testing {
namespace {

TEST_F(FilterPortTest, LoadsTheConfiguredLibrary) {
  Opened();
  EXPECT_EQ(driver.Connects(), 1U);
}

TEST_F(FilterPortTest, NamesTheMissingLibraryOrFunction) {
  EXPECT_EQ(FailureOf([] {
              FilterPort({.filterLibrary = "no-such-library.dll"}, {});
            }).find("the Filter Manager's library no-such-library.dll cannot be loaded: "),
            0U);
  EXPECT_EQ(FailureOf([] { FilterPort({.filterLibrary = "libwinpthread-1.dll"}, {}); }),
            "the Filter Manager's library libwinpthread-1.dll has no FilterConnectCommunicationPort");
}

TEST_F(FilterPortTest, SendsThePortNameAndTheConnectContext) {
  Made(ContextBytes(2))->Connect();
  EXPECT_EQ(driver.PortName(), records::kPortName);
  EXPECT_EQ(driver.ConnectContext(), ContextBytes(2));
  EXPECT_EQ(port->Totals().connects, 1U);
}

TEST_F(FilterPortTest, ThrowsTheDriversErrorWhenItRefusesTheConnection) {
  driver.FailConnects(E_ACCESSDENIED);
  const std::string refused = FailureOf([&] { Made()->Connect(); });
  EXPECT_EQ(refused.find(std::string("the driver's port ") + kName + " cannot be opened: "), 0U) << refused;
  EXPECT_NE(refused.find("0x80070005"), std::string::npos) << refused;
  driver.FailConnects(S_OK);
  EXPECT_NE(FailureOf([&] { Made(Bytes(16))->Connect(); }), "");
  EXPECT_NE(FailureOf([&] { Made(ContextBytes(1), "\\AnotherPort")->Connect(); }), "");
  EXPECT_EQ(driver.BadConnects(), 2U);
  EXPECT_EQ(port->Totals().refusedConnects, 3U);
  EXPECT_FALSE(driver.PortOpen());
}

TEST_F(FilterPortTest, RefusesToConnectTwiceOrAfterStop) {
  Opened();
  EXPECT_NE(FailureOf([&] { client->Connect(); }), "");
  EXPECT_NE(FailureOf([&] { client->Start(); }), "");
  port->Stop();
  const auto late = port->MakePortClient(kName, Buffer(ContextBytes(1)), 100, {}, 0);
  EXPECT_NE(FailureOf([&] { late->Connect(); }), "");
  EXPECT_EQ(driver.Connects(), 1U);
}

TEST_F(FilterPortTest, FillsTheReplyToTheVersionRequest) {
  driver.SetVersion(20200101, records::kRequestSize);
  Opened();
  const Bytes request = RequestBytes(records::Command::kDriverVersion);
  std::shared_ptr<CBuf> reply = Buffer(request);
  const auto given = reply;
  client->Send(Buffer(request), reply, true);
  EXPECT_EQ(reply, given);
  records::VersionReply answer{};
  std::memcpy(&answer, reply->GetData(), sizeof(answer));
  EXPECT_EQ(answer.version.value(), 20200101U);
  ASSERT_EQ(driver.Requests().size(), 1U);
  EXPECT_EQ(driver.Requests()[0], request);
}

TEST_F(FilterPortTest, SendsARequestWithoutReply) {
  Opened();
  std::shared_ptr<CBuf> none;
  const Bytes request = RequestBytes(records::Command::kDumpDebugInfo);
  client->Send(Buffer(request), none, true);
  EXPECT_EQ(none, nullptr);
  EXPECT_EQ(driver.Requests(), std::vector<Bytes>{request});
  EXPECT_EQ(port->Totals().requests, 1U);
}

TEST_F(FilterPortTest, ThrowsIfARequestIsRejected) {
  Made();
  std::shared_ptr<CBuf> none;
  EXPECT_EQ(FailureOf([&] { client->Send(Buffer(Bytes(16)), none, true); }), "the driver's port is not open");
  EXPECT_EQ(FailureOf([&] { client->Send(nullptr, none, true); }), "there is no request to send");
  client->Connect();
  driver.FailSends(E_OUTOFMEMORY);
  EXPECT_NE(FailureOf([&] { client->Send(Buffer(RequestBytes(records::Command::kSpspState)), none, true); }), "");
  EXPECT_EQ(port->Totals().failedRequests, 1U);
}

TEST_F(FilterPortTest, PassesMessagesToTheHandlerAndRepliesToTheDriver) {
  handler = [](const Bytes& message) { return Buffer(ReplyBytes(message.at(0))); };
  Opened();
  for (std::uint8_t verdict = 2; verdict < 9; ++verdict) {
    const StandInAnswer answer = driver.Deliver(Bytes(156, verdict), kRoom, kTimeout);
    ASSERT_EQ(answer.outcome, Outcome::kReplied);
    EXPECT_EQ(answer.status, 0);
    EXPECT_EQ(answer.bytes, ReplyBytes(verdict));
  }
  const FilterPortTotals totals = AwaitTotals([](const auto& so) { return so.answered == 7; });
  EXPECT_EQ(totals.received, 7U);
  EXPECT_EQ(totals.answered, 7U);
  EXPECT_EQ(totals.inFlight, 0U);
  EXPECT_TRUE(totals.AddsUp());
}

TEST_F(FilterPortTest, ReceivesMessagesOfEverySize) {
  std::atomic<bool> same{true};
  handler = [&](const Bytes& message) {
    for (std::size_t at = 0; at < message.size(); ++at) {
      if (message[at] != static_cast<std::uint8_t>(at * 7 + message.size())) same = false;
    }
    return Buffer(ReplyBytes(static_cast<std::uint32_t>(message.size())));
  };
  Opened();
  for (const std::size_t size : {std::size_t{0}, std::size_t{1}, std::size_t{156}, std::size_t{4096},
                                 std::size_t{65536}, std::size_t{196763}, std::size_t{records::kMaxMessageSize}}) {
    Bytes message(size);
    for (std::size_t at = 0; at < size; ++at) message[at] = static_cast<std::uint8_t>(at * 7 + size);
    const StandInAnswer answer = driver.Deliver(message, kRoom, kTimeout);
    ASSERT_EQ(answer.outcome, Outcome::kReplied) << size;
    EXPECT_EQ(VerdictOf(answer.bytes), size);
  }
  EXPECT_TRUE(same);
}

TEST_F(FilterPortTest, AMessageThatDoesNotFitEndsTheConnection) {
  Opened();
  EXPECT_EQ(driver.Deliver(Bytes(records::kMaxMessageSize + 1), kRoom, kTimeout).outcome, Outcome::kDisconnected);
  client->Wait();
  EXPECT_EQ(port->Totals().received, 0U);
}

TEST_F(FilterPortTest, IgnoresAMessageWithoutAHeader) {
  Opened();
  EXPECT_TRUE(driver.DeliverRaw(Bytes(5)));
  EXPECT_EQ(driver.Deliver(Bytes(156), kRoom, kTimeout).outcome, Outcome::kReplied);
  EXPECT_EQ(AwaitTotals([](const auto& so) { return so.answered == 1; }).received, 1U);
}

TEST_F(FilterPortTest, HandlesOneMessagePerThreadConcurrently) {
  Gate gate;
  handler = [&](const Bytes&) {
    gate.Pass();
    return Buffer(ReplyBytes(kPassVerdict));
  };
  Opened();
  std::vector<std::future<StandInAnswer>> operations;
  for (int index = 0; index < 12; ++index) {
    operations.push_back(std::async(std::launch::async, [&] { return driver.Deliver(Bytes(1000), kRoom, kTimeout); }));
  }
  EXPECT_TRUE(gate.AwaitArrivals(3));
  gate.Open();
  for (auto& operation : operations) EXPECT_EQ(operation.get().outcome, Outcome::kReplied);
  EXPECT_EQ(AwaitTotals([](const auto& so) { return so.answered == 12; }).answered, 12U);
}

TEST_F(FilterPortTest, KeepsOneReceivePendingPerBuffer) {
  const std::vector<std::uint32_t> all(6, sizeof(FILTER_MESSAGE_HEADER) + records::kMaxMessageSize);
  Made()->Connect();
  EXPECT_EQ(driver.PendingReceptions().size(), 0U);
  client->Start();
  EXPECT_EQ(driver.PendingReceptions(), all);
  EXPECT_EQ(driver.Deliver(Bytes(156), kRoom, kTimeout).outcome, Outcome::kReplied);
  EXPECT_TRUE(AwaitPendingReceptions(6));  // a buffer is posted again once its message is handled
}

TEST_F(FilterPortTest, AnswersManyMessagesFromManyThreads) {
  handler = [](const Bytes& message) { return Buffer(ReplyBytes(message.at(0))); };
  Opened();
  std::vector<std::thread> operations;
  std::atomic<int> right{0};
  for (int thread = 0; thread < 6; ++thread) {
    operations.emplace_back([&, thread] {
      for (int index = 0; index < 200; ++index) {
        const auto verdict = static_cast<std::uint8_t>(1 + (thread * 31 + index) % 250);
        const StandInAnswer answer = driver.Deliver(Bytes(156 + 13 * index, verdict), kRoom, kTimeout);
        if (answer.outcome == Outcome::kReplied && VerdictOf(answer.bytes) == verdict) ++right;
      }
    });
  }
  for (std::thread& operation : operations) operation.join();
  EXPECT_EQ(right, 1200);
  EXPECT_EQ(AwaitTotals([](const auto& so) { return so.answered == 1200; }).answered, 1200U);
}

TEST_F(FilterPortTest, SendsNoReplyIfTheDriverExpectsNone) {
  std::atomic<int> handled{0};
  handler = [&](const Bytes&) {
    ++handled;
    return std::shared_ptr<CBuf>();
  };
  Opened();
  EXPECT_EQ(driver.Deliver(Bytes(156), 0, kTimeout).outcome, Outcome::kNotDue);
  EXPECT_EQ(AwaitTotals([](const auto& so) { return so.noAnswerDue == 1; }).noAnswerDue, 1U);
  EXPECT_EQ(handled, 1);
  EXPECT_EQ(driver.Replies() + driver.RepliesWithoutWaiter(), 0U);
}

// An exception without a message.
class NullWhat final : public std::exception {
 public:
  const char* what() const noexcept override { return nullptr; }
};

TEST_F(FilterPortTest, RepliesUnjudgedIfTheModuleGivesNoReply) {
  handler = [](const Bytes& message) -> std::shared_ptr<CBuf> {
    if (message.at(0) == 1) throw std::runtime_error("no buffer");
    if (message.at(0) == 2) throw 5;
    if (message.at(0) == 3) throw NullWhat();
    return nullptr;
  };
  Opened();
  for (std::uint8_t kind = 1; kind <= 4; ++kind) {
    const StandInAnswer answer = driver.Deliver(Bytes(156, kind), kRoom, kTimeout);
    ASSERT_EQ(answer.outcome, Outcome::kReplied);
    EXPECT_EQ(answer.bytes, ReplyBytes(static_cast<std::uint32_t>(records::Verdict::kUnjudged)));
    EXPECT_TRUE(Await([&] { return Logged().size() == kind; }));  // another thread may handle the next message
  }
  const FilterPortTotals totals = AwaitTotals([](const auto& so) { return so.answeredInstead == 4; });
  EXPECT_EQ(totals.answeredInstead, 4U);
  EXPECT_TRUE(totals.AddsUp());
  EXPECT_EQ(
      Logged(),
      (std::vector<std::string>{
          "[driver port] An operation was not judged: the module's handler failed: no buffer.",
          "[driver port] An operation was not judged: the module's handler failed.",
          "[driver port] An operation was not judged: the module's handler failed: .",
          "[driver port] An operation was not judged: the module returned no reply to a message that requires one.",
      }));
}

TEST_F(FilterPortTest, RepliesUnjudgedIfTheModulesReplyIsNotAccepted) {
  handler = [](const Bytes&) { return Buffer(ReplyBytes(6, 1000)); };
  Opened();
  EXPECT_EQ(driver.Deliver(Bytes(156), kRoom, kTimeout).bytes, ReplyBytes(6, 1000));
  driver.FailReplies(HRESULT_FROM_WIN32(ERROR_MORE_DATA), 1);
  EXPECT_EQ(driver.Deliver(Bytes(156), kRoom, kTimeout).bytes,
            ReplyBytes(static_cast<std::uint32_t>(records::Verdict::kUnjudged)));
  driver.FailReplies(E_OUTOFMEMORY, 2);
  EXPECT_EQ(driver.Deliver(Bytes(156), kRoom, std::chrono::seconds(1)).outcome, Outcome::kTimedOut);
  const FilterPortTotals totals =
      AwaitTotals([](const auto& so) { return so.answered == 1 && so.answeredInstead == 1 && so.lost == 1; });
  EXPECT_EQ(totals.answered, 1U);
  EXPECT_EQ(totals.answeredInstead, 1U);
  EXPECT_EQ(totals.lost, 1U);
  EXPECT_TRUE(totals.AddsUp());
}

TEST_F(FilterPortTest, CountsAReplyThatNobodyWaitsForAsLate) {
  Gate gate;
  handler = [&](const Bytes&) {
    gate.Pass();
    return Buffer(ReplyBytes(kPassVerdict));
  };
  Opened();
  EXPECT_EQ(driver.Deliver(Bytes(156), kRoom, std::chrono::milliseconds(200)).outcome, Outcome::kTimedOut);
  gate.Open();
  EXPECT_EQ(AwaitTotals([](const auto& so) { return so.late == 1; }).late, 1U);
  EXPECT_EQ(driver.RepliesWithoutWaiter(), 1U);
  EXPECT_EQ(driver.Deliver(Bytes(156), kRoom, kTimeout).outcome, Outcome::kReplied);
}

}  // namespace
}  // namespace fenlux::testing
