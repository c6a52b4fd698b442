// The port client over the Filter Manager's functions, with the stand-in of tests/support in the Filter Manager's
// place.
#include "refhost/port/filter_port_client.h"

#include <gtest/gtest.h>
#include <windows.h>
// After windows.h, which it needs.
#include <fltuser.h>

#include <atomic>
#include <condition_variable>
#include <cstring>
#include <functional>
#include <future>
#include <mutex>
#include <stdexcept>
#include <thread>

#include "kdi/driver_records.h"
#include "refhost/services/heap_buffer.h"
#include "tests/support/filter_stand_in/filter_stand_in.h"

namespace fenlux::testing {
namespace {

using refhost::FilterPort;
using refhost::FilterPortTotals;
using refhost::HeapBuffer;
using Bytes = std::vector<std::uint8_t>;
using Outcome = StandInAnswer::Outcome;

constexpr char kLibrary[] = "fenlux-filter-stand-in.dll";
constexpr char kName[] = "\\QORV_SE_Port_5E2C2A32-6CE5-41A1-AEB8-43EE1CBE975E";
// Long enough that only a hang gets there.
constexpr std::chrono::seconds kPatience{60};
constexpr std::uint32_t kRoom = records::kReplyFixedSize;

std::shared_ptr<CBuf> Buffer(const Bytes& bytes) { return std::make_shared<HeapBuffer>(bytes); }

Bytes ContextBytes(std::uint32_t clientType) {
  records::ConnectContext context{};
  context.magic = records::kConnectMagic;
  context.version = records::kConnectVersion;
  context.clientType = clientType;
  Bytes bytes(sizeof(context));
  std::memcpy(bytes.data(), &context, sizeof(context));
  return bytes;
}

Bytes ReplyBytes(std::uint32_t verdict, std::size_t extra = 0) {
  records::Reply reply{};
  reply.magic = records::kReplyMagic;
  reply.fixedSize = records::kReplyFixedSize;
  reply.verdict = verdict;
  reply.contextSize = static_cast<std::uint32_t>(extra);
  Bytes bytes(sizeof(reply) + extra, 0xEE);
  std::memcpy(bytes.data(), &reply, sizeof(reply));
  return bytes;
}

std::uint32_t VerdictOf(const Bytes& bytes) {
  records::Reply reply{};
  if (bytes.size() < sizeof(reply)) return 0;
  std::memcpy(&reply, bytes.data(), sizeof(reply));
  EXPECT_EQ(reply.magic.value(), records::kReplyMagic);
  EXPECT_EQ(reply.fixedSize.value(), records::kReplyFixedSize);
  return reply.verdict.value();
}

Bytes RequestBytes(records::Command command) {
  records::RequestHeader header{};
  header.magic = records::kRequestMagic;
  header.command = static_cast<std::uint32_t>(command);
  Bytes bytes(records::kRequestSize);
  std::memcpy(bytes.data(), &header, sizeof(header));
  return bytes;
}

std::string FailureOf(const std::function<void()>& action) {
  try {
    action();
  } catch (const std::exception& error) {
    return error.what();
  }
  return {};
}

// A place where handlers can be stopped.
class Gate {
 public:
  void Pass() {
    std::unique_lock lock(mutex);
    ++arrivals;
    changed.notify_all();
    changed.wait(lock, [this] { return open; });
  }
  bool AwaitArrivals(int count) {
    std::unique_lock lock(mutex);
    return changed.wait_for(lock, kPatience, [&] { return arrivals >= count; });
  }
  void Open() {
    const std::lock_guard lock(mutex);
    open = true;
    changed.notify_all();
  }

 private:
  std::mutex mutex;
  std::condition_variable changed;
  int arrivals = 0;
  bool open = false;
};

class FilterPortTest : public ::testing::Test {
 protected:
  FilterPortTest() { driver.Reset(); }
  ~FilterPortTest() override {
    driver.Release();
    if (client != nullptr) client->Close();
    client.reset();
    AwaitClosed();
  }

  std::shared_ptr<CPortClient> Made(const Bytes& context = ContextBytes(1), const std::string& name = kName) {
    if (port == nullptr) {
      port = std::make_shared<FilterPort>(
          refhost::FilterPortSettings{.filterLibrary = kLibrary, .threads = 3, .buffers = 6},
          [lines = lines](refhost::Severity, const std::string& line) {
            const std::lock_guard lock(lines->first);
            lines->second.push_back(line);
          });
    }
    client = port->MakePortClient(
        name, Buffer(context), records::kMaxMessageSize,
        [this](const void* message, std::uint32_t size) {
          const auto* bytes = static_cast<const std::uint8_t*>(message);
          return handler({bytes, bytes + size});
        },
        7);
    return client;
  }
  CPortClient& Opened() {
    Made();
    client->Connect();
    client->Start();
    return *client;
  }

  // A request on a thread of its own, which the driver holds; what its sending fails with.
  std::future<std::string> HeldSend() {
    auto sending = std::async(std::launch::async, [this] {
      std::shared_ptr<CBuf> none;
      return FailureOf([&] { client->Send(Buffer(RequestBytes(records::Command::kSpspState)), none, true); });
    });
    EXPECT_TRUE(driver.AwaitHeld(1, kPatience));
    return sending;
  }
  // Whether it ends without the driver's help; afterwards it gets that, so that the test ends.
  bool EndsByItself(const std::future<std::string>& sending) {
    const bool ended = sending.wait_for(kPatience) == std::future_status::ready;
    driver.Release();
    return ended;
  }

  template <typename Condition>
  static bool Await(const Condition& condition) {
    const auto until = std::chrono::steady_clock::now() + kPatience;
    while (!condition() && std::chrono::steady_clock::now() < until) std::this_thread::yield();
    return condition();
  }
  // Closing is the last user's: the driver sees it a little later than the caller.
  bool AwaitClosed() {
    return Await([this] { return !driver.PortOpen(); });
  }
  bool AwaitPendingReceptions(std::size_t count) {
    return Await([&] { return driver.PendingReceptions().size() == count; });
  }
  // Until the totals are so: counting follows the reply.
  FilterPortTotals AwaitTotals(const std::function<bool(const FilterPortTotals&)>& condition) {
    Await([&] { return condition(port->Totals()); });
    return port->Totals();
  }
  std::vector<std::string> LogLines() {
    const std::lock_guard lock(lines->first);
    return lines->second;
  }

  FilterStandIn& driver = FilterStandIn::Instance();
  std::function<std::shared_ptr<CBuf>(const Bytes&)> handler = [](const Bytes&) { return Buffer(ReplyBytes(3)); };
  std::shared_ptr<FilterPort> port;
  std::shared_ptr<CPortClient> client;

 private:
  std::shared_ptr<std::pair<std::mutex, std::vector<std::string>>> lines =
      std::make_shared<std::pair<std::mutex, std::vector<std::string>>>();
};

TEST_F(FilterPortTest, TheStandInsLibraryIsTheOneThatIsLoaded) {
  Opened();
  EXPECT_EQ(driver.Connects(), 1U);
}

TEST_F(FilterPortTest, SaysWhichLibraryOrFunctionIsMissing) {
  EXPECT_EQ(FailureOf([] {
              FilterPort({.filterLibrary = "no-such-library.dll"}, {});
            }).find("the Filter Manager's library no-such-library.dll cannot be loaded: "),
            0U);
  EXPECT_EQ(FailureOf([] { FilterPort({.filterLibrary = "libwinpthread-1.dll"}, {}); }),
            "the Filter Manager's library libwinpthread-1.dll has no FilterConnectCommunicationPort");
}

TEST_F(FilterPortTest, GivesTheDriverThePortNameAndTheConnectContext) {
  Made(ContextBytes(2))->Connect();
  EXPECT_EQ(driver.PortName(), records::kPortName);
  EXPECT_EQ(driver.ConnectContext(), ContextBytes(2));
  EXPECT_EQ(port->Totals().connects, 1U);
}

TEST_F(FilterPortTest, ThrowsWhatTheDriverRefusesWith) {
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

TEST_F(FilterPortTest, RefusesToOpenAPortTwiceOrAfterTheHostsStop) {
  Opened();
  EXPECT_NE(FailureOf([&] { client->Connect(); }), "");
  EXPECT_NE(FailureOf([&] { client->Start(); }), "");
  port->Stop();
  const auto late = port->MakePortClient(kName, Buffer(ContextBytes(1)), 100, {}, 0);
  EXPECT_NE(FailureOf([&] { late->Connect(); }), "");
  EXPECT_EQ(driver.Connects(), 1U);
}

TEST_F(FilterPortTest, FillsTheReplyOfTheVersionRequest) {
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

TEST_F(FilterPortTest, SendsARequestThatWantsNoAnswer) {
  Opened();
  std::shared_ptr<CBuf> none;
  const Bytes request = RequestBytes(records::Command::kDumpDebugInfo);
  client->Send(Buffer(request), none, true);
  EXPECT_EQ(none, nullptr);
  EXPECT_EQ(driver.Requests(), std::vector<Bytes>{request});
  EXPECT_EQ(port->Totals().requests, 1U);
}

TEST_F(FilterPortTest, ThrowsWhereARequestIsNotTaken) {
  Made();
  std::shared_ptr<CBuf> none;
  EXPECT_EQ(FailureOf([&] { client->Send(Buffer(Bytes(16)), none, true); }), "the driver's port is not open");
  EXPECT_EQ(FailureOf([&] { client->Send(nullptr, none, true); }), "there is no request to send to the driver");
  client->Connect();
  driver.FailSends(E_OUTOFMEMORY);
  EXPECT_NE(FailureOf([&] { client->Send(Buffer(RequestBytes(records::Command::kSpspState)), none, true); }), "");
  EXPECT_EQ(port->Totals().failedRequests, 1U);
}

TEST_F(FilterPortTest, CarriesEachMessageToTheHandlerAndItsReplyBack) {
  handler = [](const Bytes& message) { return Buffer(ReplyBytes(message.at(0))); };
  Opened();
  for (std::uint8_t verdict = 2; verdict < 9; ++verdict) {
    const StandInAnswer answer = driver.Deliver(Bytes(156, verdict), kRoom, kPatience);
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

TEST_F(FilterPortTest, MessagesOfEverySizeArriveWhole) {
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
    const StandInAnswer answer = driver.Deliver(message, kRoom, kPatience);
    ASSERT_EQ(answer.outcome, Outcome::kReplied) << size;
    EXPECT_EQ(VerdictOf(answer.bytes), size);
  }
  EXPECT_TRUE(same);
}

TEST_F(FilterPortTest, AMessageThatDoesNotFitEndsTheConnectionAndReleasesTheDriver) {
  Opened();
  EXPECT_EQ(driver.Deliver(Bytes(records::kMaxMessageSize + 1), kRoom, kPatience).outcome, Outcome::kDisconnected);
  client->Wait();
  EXPECT_EQ(port->Totals().received, 0U);
}

TEST_F(FilterPortTest, AMessageWithoutAHeaderIsPassedOver) {
  Opened();
  EXPECT_TRUE(driver.DeliverRaw(Bytes(5)));
  EXPECT_EQ(driver.Deliver(Bytes(156), kRoom, kPatience).outcome, Outcome::kReplied);
  EXPECT_EQ(AwaitTotals([](const auto& so) { return so.answered == 1; }).received, 1U);
}

TEST_F(FilterPortTest, ServesAsManyMessagesAtOnceAsItHasThreads) {
  Gate gate;
  handler = [&](const Bytes&) {
    gate.Pass();
    return Buffer(ReplyBytes(3));
  };
  Opened();
  std::vector<std::future<StandInAnswer>> operations;
  for (int index = 0; index < 12; ++index) {
    operations.push_back(std::async(std::launch::async, [&] { return driver.Deliver(Bytes(1000), kRoom, kPatience); }));
  }
  EXPECT_TRUE(gate.AwaitArrivals(3));
  gate.Open();
  for (auto& operation : operations) EXPECT_EQ(operation.get().outcome, Outcome::kReplied);
  EXPECT_EQ(AwaitTotals([](const auto& so) { return so.answered == 12; }).answered, 12U);
}

TEST_F(FilterPortTest, KeepsAsManyReceptionsPendingAsItHasBuffers) {
  const std::vector<std::uint32_t> all(6, sizeof(FILTER_MESSAGE_HEADER) + records::kMaxMessageSize);
  Made()->Connect();
  EXPECT_EQ(driver.PendingReceptions().size(), 0U);
  client->Start();
  EXPECT_EQ(driver.PendingReceptions(), all);
  EXPECT_EQ(driver.Deliver(Bytes(156), kRoom, kPatience).outcome, Outcome::kReplied);
  EXPECT_TRUE(AwaitPendingReceptions(6));  // a buffer goes back once its message is served
}

TEST_F(FilterPortTest, ManyMessagesFromManyThreadsAreAllAnswered) {
  handler = [](const Bytes& message) { return Buffer(ReplyBytes(message.at(0))); };
  Opened();
  std::vector<std::thread> operations;
  std::atomic<int> right{0};
  for (int thread = 0; thread < 6; ++thread) {
    operations.emplace_back([&, thread] {
      for (int index = 0; index < 200; ++index) {
        const auto verdict = static_cast<std::uint8_t>(1 + (thread * 31 + index) % 250);
        const StandInAnswer answer = driver.Deliver(Bytes(156 + 13 * index, verdict), kRoom, kPatience);
        if (answer.outcome == Outcome::kReplied && VerdictOf(answer.bytes) == verdict) ++right;
      }
    });
  }
  for (std::thread& operation : operations) operation.join();
  EXPECT_EQ(right, 1200);
  EXPECT_EQ(AwaitTotals([](const auto& so) { return so.answered == 1200; }).answered, 1200U);
}

TEST_F(FilterPortTest, SendsNothingWhereTheDriverWaitsForNothing) {
  std::atomic<int> handled{0};
  handler = [&](const Bytes&) {
    ++handled;
    return std::shared_ptr<CBuf>();
  };
  Opened();
  EXPECT_EQ(driver.Deliver(Bytes(156), 0, kPatience).outcome, Outcome::kNotDue);
  EXPECT_EQ(AwaitTotals([](const auto& so) { return so.noAnswerDue == 1; }).noAnswerDue, 1U);
  EXPECT_EQ(handled, 1);
  EXPECT_EQ(driver.Replies() + driver.RepliesWithoutWaiter(), 0U);
}

TEST_F(FilterPortTest, AnswersForItselfWhereTheModuleDoesNot) {
  handler = [](const Bytes& message) -> std::shared_ptr<CBuf> {
    if (message.at(0) == 1) throw std::runtime_error("no buffer");
    if (message.at(0) == 2) throw 5;
    return nullptr;
  };
  Opened();
  for (std::uint8_t kind = 1; kind <= 3; ++kind) {
    const StandInAnswer answer = driver.Deliver(Bytes(156, kind), kRoom, kPatience);
    ASSERT_EQ(answer.outcome, Outcome::kReplied);
    EXPECT_EQ(answer.bytes, ReplyBytes(8));
  }
  const FilterPortTotals totals = AwaitTotals([](const auto& so) { return so.answeredInstead == 3; });
  EXPECT_EQ(totals.answeredInstead, 3U);
  EXPECT_TRUE(totals.AddsUp());
  const auto until = std::chrono::steady_clock::now() + kPatience;
  while (LogLines().size() < 3 && std::chrono::steady_clock::now() < until) std::this_thread::yield();
  EXPECT_EQ(LogLines(),
            (std::vector<std::string>{
                "[driver port] An operation was not judged, as the module's handler failed: no buffer.",
                "[driver port] An operation was not judged, as the module's handler failed.",
                "[driver port] An operation was not judged, as the module has no reply for a message that demands one.",
            }));
}

TEST_F(FilterPortTest, AnswersOnceMoreWhereTheModulesReplyIsNotTaken) {
  handler = [](const Bytes&) { return Buffer(ReplyBytes(6, 1000)); };
  Opened();
  EXPECT_EQ(driver.Deliver(Bytes(156), kRoom, kPatience).bytes, ReplyBytes(6, 1000));
  driver.FailReplies(HRESULT_FROM_WIN32(ERROR_MORE_DATA), 1);
  EXPECT_EQ(driver.Deliver(Bytes(156), kRoom, kPatience).bytes, ReplyBytes(8));
  driver.FailReplies(E_OUTOFMEMORY, 2);
  EXPECT_EQ(driver.Deliver(Bytes(156), kRoom, std::chrono::seconds(1)).outcome, Outcome::kTimedOut);
  const FilterPortTotals totals = AwaitTotals([](const auto& so) { return so.lost == 1; });
  EXPECT_EQ(totals.answered, 1U);
  EXPECT_EQ(totals.answeredInstead, 1U);
  EXPECT_EQ(totals.lost, 1U);
  EXPECT_TRUE(totals.AddsUp());
}

TEST_F(FilterPortTest, AReplyThatNobodyWaitsForAnyMoreIsLate) {
  Gate gate;
  handler = [&](const Bytes&) {
    gate.Pass();
    return Buffer(ReplyBytes(3));
  };
  Opened();
  EXPECT_EQ(driver.Deliver(Bytes(156), kRoom, std::chrono::milliseconds(200)).outcome, Outcome::kTimedOut);
  gate.Open();
  EXPECT_EQ(AwaitTotals([](const auto& so) { return so.late == 1; }).late, 1U);
  EXPECT_EQ(driver.RepliesWithoutWaiter(), 1U);
  EXPECT_EQ(driver.Deliver(Bytes(156), kRoom, kPatience).outcome, Outcome::kReplied);
}

TEST_F(FilterPortTest, WaitReturnsWhenTheDriverGoesAway) {
  Opened();
  auto waiting = std::async(std::launch::async, [&] { client->Wait(); });
  EXPECT_EQ(driver.Deliver(Bytes(156), kRoom, kPatience).outcome, Outcome::kReplied);
  driver.Drop();
  EXPECT_EQ(waiting.wait_for(kPatience), std::future_status::ready);
  std::shared_ptr<CBuf> none;
  EXPECT_EQ(FailureOf([&] { client->Send(Buffer(Bytes(16)), none, true); }), "the driver's port is not open");
}

TEST_F(FilterPortTest, AnotherPortClientServesAfterTheDriverHasComeBack) {
  Opened();
  driver.Drop();
  client->Wait();
  Opened();
  EXPECT_EQ(driver.Deliver(Bytes(156), kRoom, kPatience).outcome, Outcome::kReplied);
  EXPECT_EQ(port->Totals().connects, 2U);
}

TEST_F(FilterPortTest, CloseBeforeEverythingIsFinal) {
  Made()->Close();
  client->Close();
  client->Wait();
  EXPECT_EQ(FailureOf([&] { client->Connect(); }), "the driver's port was closed before it was opened");
  client->Start();
  client->Wait();
  EXPECT_EQ(driver.Connects(), 0U);
}

TEST_F(FilterPortTest, CloseBetweenOpeningAndStartingClosesThePort) {
  Made()->Connect();
  client->Close();
  EXPECT_TRUE(AwaitClosed());
  client->Start();
  client->Wait();
}

TEST_F(FilterPortTest, CloseWhileThePortIsBeingOpenedIsNotLost) {
  driver.HoldConnects();
  Made();
  auto connecting = std::async(std::launch::async, [&] { return FailureOf([&] { client->Connect(); }); });
  ASSERT_TRUE(driver.AwaitHeld(1, kPatience));
  client->Close();
  client->Wait();
  driver.Release();
  EXPECT_EQ(connecting.get(), "the driver's port was closed while it was being opened");
  EXPECT_TRUE(AwaitClosed());
}

TEST_F(FilterPortTest, CloseEndsTheWaitingAndThePort) {
  Opened();
  auto waiting = std::async(std::launch::async, [&] { client->Wait(); });
  client->Close();
  EXPECT_EQ(waiting.wait_for(kPatience), std::future_status::ready);
  EXPECT_TRUE(AwaitClosed());
  client->Close();
}

TEST_F(FilterPortTest, CloseDoesNotWaitForAHandlerAndReleasesTheDriver) {
  Gate gate;
  handler = [&](const Bytes&) {
    gate.Pass();
    return Buffer(ReplyBytes(3));
  };
  Opened();
  auto operation = std::async(std::launch::async, [&] { return driver.Deliver(Bytes(156), kRoom, kPatience); });
  ASSERT_TRUE(gate.AwaitArrivals(1));
  client->Close();  // the handler is still inside
  client->Wait();
  EXPECT_EQ(operation.get().outcome, Outcome::kDisconnected);
  gate.Open();
  const FilterPortTotals totals = AwaitTotals([](const auto& so) { return so.lost == 1; });
  EXPECT_EQ(totals.lost, 1U);
  EXPECT_TRUE(totals.AddsUp());
}

TEST_F(FilterPortTest, AHandlerMayCloseItsOwnConnection) {
  handler = [this](const Bytes&) {
    client->Close();
    return Buffer(ReplyBytes(3));
  };
  Opened();
  EXPECT_EQ(driver.Deliver(Bytes(156), kRoom, kPatience).outcome, Outcome::kDisconnected);
  client->Wait();
}

TEST_F(FilterPortTest, CloseDoesNotWaitForARequestThatIsHeldUpInTheDriver) {
  Opened();
  driver.HoldSends();
  auto sending = HeldSend();
  client->Close();
  client->Wait();
  // The request keeps the port open, but the buffers come back.
  EXPECT_TRUE(driver.PortOpen());
  EXPECT_TRUE(AwaitPendingReceptions(0));
  driver.Release();
  sending.get();
  EXPECT_TRUE(AwaitClosed());
}

TEST_F(FilterPortTest, CloseEndsARequestThatTheDriverNeverAnswers) {
  Opened();
  driver.HoldSendsUntilCancelled();
  auto sending = HeldSend();
  client->Close();
  EXPECT_TRUE(EndsByItself(sending));
  EXPECT_EQ(sending.get().find("the driver did not take a request: "), 0U);
  EXPECT_EQ(port->Totals().failedRequests, 1U);
  EXPECT_TRUE(AwaitClosed());
}

TEST_F(FilterPortTest, CloseEndsARequestThatWasOnItsWayToTheDriver) {
  Opened();
  driver.HoldSends();
  auto sending = HeldSend();
  client->Close();                   // finds no operation of it that could be cancelled
  driver.HoldSendsUntilCancelled();  // now there is one
  EXPECT_TRUE(EndsByItself(sending));
  EXPECT_EQ(sending.get().find("the driver did not take a request: "), 0U);
  EXPECT_TRUE(AwaitClosed());
}

TEST_F(FilterPortTest, LettingGoOfThePortClientEndsTheConnection) {
  Opened();
  EXPECT_EQ(driver.Deliver(Bytes(156), kRoom, kPatience).outcome, Outcome::kReplied);
  client.reset();
  EXPECT_TRUE(AwaitClosed());
}

TEST_F(FilterPortTest, OpeningAndClosingOverAndOverUnderLoadLosesNothing) {
  for (int round = 0; round < 20; ++round) {
    Opened();
    std::vector<std::future<StandInAnswer>> operations;
    for (int index = 0; index < 4; ++index) {
      operations.push_back(
          std::async(std::launch::async, [&] { return driver.Deliver(Bytes(500), kRoom, kPatience); }));
    }
    if (round % 2 == 0) {
      client->Close();
    } else {
      driver.Drop();
    }
    client->Wait();
    for (auto& operation : operations) EXPECT_NE(operation.get().outcome, Outcome::kTimedOut);
    EXPECT_TRUE(AwaitClosed());
  }
  EXPECT_EQ(port->Totals().connects, 20U);
  const FilterPortTotals totals = AwaitTotals([](const auto& so) { return so.inFlight == 0; });
  EXPECT_EQ(totals.inFlight, 0U);
  EXPECT_TRUE(totals.AddsUp());
}

}  // namespace
}  // namespace fenlux::testing
