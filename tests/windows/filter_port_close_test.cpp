// The end of a port client's connection: Close at every moment, and the driver disconnecting.
#include <gtest/gtest.h>

#include <future>
#include <vector>

#include "tests/windows/filter_port_fixture.h"

namespace fenlux::testing {
namespace {

TEST_F(FilterPortTest, WaitReturnsWhenTheDriverDisconnects) {
  Opened();
  auto waiting = std::async(std::launch::async, [&] { client->Wait(); });
  EXPECT_EQ(driver.Deliver(Bytes(156), kRoom, kTimeout).outcome, Outcome::kReplied);
  driver.Drop();
  EXPECT_EQ(waiting.wait_for(kTimeout), std::future_status::ready);
  std::shared_ptr<CBuf> none;
  EXPECT_EQ(FailureOf([&] { client->Send(Buffer(Bytes(16)), none, true); }), "the driver's port is not open");
}

TEST_F(FilterPortTest, ANewPortClientConnectsAfterTheDriverIsBack) {
  Opened();
  driver.Drop();
  client->Wait();
  Opened();
  EXPECT_EQ(driver.Deliver(Bytes(156), kRoom, kTimeout).outcome, Outcome::kReplied);
  EXPECT_EQ(port->Totals().connects, 2U);
}

TEST_F(FilterPortTest, CloseBeforeConnectIsFinal) {
  Made()->Close();
  client->Close();
  client->Wait();
  EXPECT_EQ(FailureOf([&] { client->Connect(); }), "the driver's port was closed before it was opened");
  client->Start();
  client->Wait();
  EXPECT_EQ(driver.Connects(), 0U);
}

TEST_F(FilterPortTest, CloseBetweenConnectAndStartClosesThePort) {
  Made()->Connect();
  client->Close();
  EXPECT_TRUE(AwaitClosed());
  client->Start();
  client->Wait();
}

TEST_F(FilterPortTest, CloseDuringConnectIsNotLost) {
  driver.HoldConnects();
  Made();
  auto connecting = std::async(std::launch::async, [&] { return FailureOf([&] { client->Connect(); }); });
  ASSERT_TRUE(driver.AwaitHeld(1, kTimeout));
  client->Close();
  client->Wait();
  driver.Release();
  EXPECT_EQ(connecting.get(), "the driver's port was closed while it was being opened");
  EXPECT_TRUE(AwaitClosed());
}

TEST_F(FilterPortTest, CloseEndsWaitAndClosesThePort) {
  Opened();
  auto waiting = std::async(std::launch::async, [&] { client->Wait(); });
  client->Close();
  EXPECT_EQ(waiting.wait_for(kTimeout), std::future_status::ready);
  EXPECT_TRUE(AwaitClosed());
  client->Close();
}

TEST_F(FilterPortTest, CloseDoesNotWaitForAHandler) {
  Gate gate;
  handler = [&](const Bytes&) {
    gate.Pass();
    return Buffer(ReplyBytes(kPassVerdict));
  };
  Opened();
  auto operation = std::async(std::launch::async, [&] { return driver.Deliver(Bytes(156), kRoom, kTimeout); });
  ASSERT_TRUE(gate.AwaitArrivals(1));
  client->Close();  // the handler is still running
  client->Wait();
  EXPECT_EQ(operation.get().outcome, Outcome::kDisconnected);
  gate.Open();
  const FilterPortTotals totals = AwaitTotals([](const auto& so) { return so.lost == 1; });
  EXPECT_EQ(totals.lost, 1U);
  EXPECT_TRUE(totals.AddsUp());
}

TEST_F(FilterPortTest, AHandlerMayCloseItsConnection) {
  handler = [this](const Bytes&) {
    client->Close();
    return Buffer(ReplyBytes(kPassVerdict));
  };
  Opened();
  EXPECT_EQ(driver.Deliver(Bytes(156), kRoom, kTimeout).outcome, Outcome::kDisconnected);
  client->Wait();
}

TEST_F(FilterPortTest, CloseDoesNotWaitForARequestBlockedInTheDriver) {
  Opened();
  driver.HoldSends();
  auto sending = HeldSend();
  client->Close();
  client->Wait();
  // The request keeps the port open, but the buffers are returned.
  EXPECT_TRUE(driver.PortOpen());
  EXPECT_TRUE(AwaitPendingReceptions(0));
  driver.Release();
  sending.get();
  EXPECT_TRUE(AwaitClosed());
}

TEST_F(FilterPortTest, CloseCancelsARequestThatTheDriverNeverAnswers) {
  Opened();
  driver.HoldSendsUntilCancelled();
  auto sending = HeldSend();
  client->Close();
  EXPECT_TRUE(EndsByItself(sending));
  EXPECT_EQ(sending.get().find("the driver rejected a request: "), 0U);
  EXPECT_EQ(port->Totals().failedRequests, 1U);
  EXPECT_TRUE(AwaitClosed());
}

TEST_F(FilterPortTest, CloseCancelsARequestThatHadNotReachedTheDriver) {
  Opened();
  driver.HoldSends();
  auto sending = HeldSend();
  client->Close();                   // there is no operation to cancel yet
  driver.HoldSendsUntilCancelled();  // now there is one
  EXPECT_TRUE(EndsByItself(sending));
  EXPECT_EQ(sending.get().find("the driver rejected a request: "), 0U);
  EXPECT_TRUE(AwaitClosed());
}

TEST_F(FilterPortTest, DestroyingThePortClientEndsTheConnection) {
  Opened();
  EXPECT_EQ(driver.Deliver(Bytes(156), kRoom, kTimeout).outcome, Outcome::kReplied);
  client.reset();
  EXPECT_TRUE(AwaitClosed());
}

TEST_F(FilterPortTest, RepeatedOpeningAndClosingUnderLoadLosesNothing) {
  for (int round = 0; round < 20; ++round) {
    Opened();
    std::vector<std::future<StandInAnswer>> operations;
    for (int index = 0; index < 4; ++index) {
      operations.push_back(std::async(std::launch::async, [&] { return driver.Deliver(Bytes(500), kRoom, kTimeout); }));
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
