// Opening a port, what the driver requires of it, and the end of a port in every order of calls.
#include "tests/unit/emulator/emulator_test.h"

namespace fenlux::testing {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class PortClient : public EmulatorTest {
 protected:
  std::string ConnectFailure(const std::string& name, const Bytes& context, std::uint32_t maxMessageSize) {
    const auto port = Emulator().MakePortClient(
        name, context.empty() ? nullptr : Buffer(context), maxMessageSize,
        [](const void*, std::uint32_t) { return Buffer(Reply(2)); }, 1);
    return FailureOf([&] { port->Connect(); });
  }
};

TEST_F(PortClient, OpensWithTheModulesParameters) {
  const auto port = Opened(2);
  const EmulatorState state = State();
  EXPECT_TRUE(state.connected);
  EXPECT_EQ(state.connects, 1u);
  EXPECT_EQ(state.clientType, 2u);
  EXPECT_EQ(state.portValue, 77u);
  EXPECT_EQ(state.protocolViolations, 0u);
  EXPECT_THAT(LogLines(), ElementsAre("Connection 1 opened, client type 2, port value 77."));
}

TEST_F(PortClient, IsRefusedForInvalidParameters) {
  const std::string name = kPortNameText;
  const Bytes context = ConnectContext();
  EXPECT_EQ(ConnectFailure("\\other", context, 196764), "unknown port name \\other");
  EXPECT_EQ(ConnectFailure(name, context, 196763), "a maximum message size of 196763 bytes");
  EXPECT_EQ(ConnectFailure(name, {}, 196764), "a connect context of 0 bytes");
  EXPECT_EQ(ConnectFailure(name, Bytes(15), 196764), "a connect context of 15 bytes");
  Bytes changed = context;
  changed[7] ^= 1;
  EXPECT_EQ(ConnectFailure(name, changed, 196764), "a connect context without its magic");
  changed = context;
  changed[8] = 201;
  EXPECT_EQ(ConnectFailure(name, changed, 196764), "a connect context of version 201");
  EXPECT_EQ(ConnectFailure(name, ConnectContext(0), 196764), "client type 0");
  EXPECT_EQ(ConnectFailure(name, ConnectContext(3), 196764), "client type 3");
  const auto deaf = Emulator().MakePortClient(name, Buffer(context), 196764, {}, 1);
  EXPECT_EQ(FailureOf([&] { deaf->Connect(); }), "a port without a notification handler");

  const EmulatorState state = State();
  EXPECT_EQ(state.protocolViolations, 9u);
  EXPECT_EQ(state.violationTexts.front(), "connect: unknown port name \\other");
  EXPECT_EQ(state.refusedConnects, 9u);
  EXPECT_EQ(state.connects, 0u);
  EXPECT_FALSE(state.connected);
}

TEST_F(PortClient, OnlyOneMayBeConnectedAtATime) {
  const auto first = Opened();
  const auto second = Made();
  EXPECT_EQ(FailureOf([&] { second->Connect(); }), "a second port was opened while another was open");
  first->Close();
  second->Connect();
  EXPECT_EQ(State().connects, 2u);
  EXPECT_THAT(State().violationTexts, ElementsAre("connect: a second port was opened while another was open"));
}

TEST_F(PortClient, MustBeConnectedAndStartedOnceAndInThatOrder) {
  const auto port = Made();
  EXPECT_EQ(FailureOf([&] { port->Start(); }), "the port was not connected");
  EXPECT_EQ(FailureOf([&] { Send(*port, Request(11)); }), "the port was not connected");
  port->Connect();
  EXPECT_EQ(FailureOf([&] { port->Connect(); }), "a port was opened twice");
  port->Start();
  EXPECT_EQ(FailureOf([&] { port->Start(); }), "the port was started twice");
  EXPECT_THAT(State().violationTexts,
              ElementsAre("start: the port was not connected", "a request before the port was connected",
                          "connect: a port was opened twice", "start: the port was started twice"));
}

TEST_F(PortClient, CloseIsFinalBeforeConnect) {
  const auto port = Made();
  port->Close();
  EXPECT_EQ(FailureOf([&] { port->Connect(); }), "the driver's port is closed");
  EXPECT_EQ(FailureOf([&] { port->Start(); }), "the driver's port is closed");
  EXPECT_EQ(FailureOf([&] { Send(*port, Request(11)); }), "the driver's port is closed");
  port->Wait();
  port->Close();
  port->Wait();
  EXPECT_EQ(State().protocolViolations, 0u);
  EXPECT_EQ(State().connects, 0u);
}

TEST_F(PortClient, CloseIsFinalBetweenConnectAndStart) {
  const auto port = Made();
  port->Connect();
  port->Close();
  EXPECT_EQ(FailureOf([&] { port->Start(); }), "the driver's port is closed");
  port->Wait();
  EXPECT_FALSE(State().connected);
}

TEST_F(PortClient, CloseEndsEveryPendingWait) {
  for (const bool connected : {false, true}) {
    const auto port = Made();
    if (connected) port->Connect();
    std::vector<std::thread> waiters;
    for (int i = 0; i < 3; ++i) waiters.emplace_back([&] { port->Wait(); });
    port->Close();
    for (std::thread& waiter : waiters) waiter.join();
  }
}

TEST_F(PortClient, CloseFromManyThreadsEndsTheConnectionOnce) {
  const auto port = Opened();
  std::vector<std::thread> closers;
  for (int i = 0; i < 4; ++i) closers.emplace_back([&] { port->Close(); });
  for (std::thread& closer : closers) closer.join();
  port->Wait();
  EXPECT_THAT(LogLines(), ElementsAre("Connection 1 opened, client type 1, port value 77.",
                                      "Connection ended: the module closed it."));
}

TEST_F(PortClient, DestroyingItEndsTheConnection) {
  auto port = Emulator().MakePortClient(
      kPortNameText, Buffer(ConnectContext()), 196764, [](const void*, std::uint32_t) { return Buffer(Reply(2)); }, 1);
  port->Connect();
  EXPECT_TRUE(State().connected);
  port.reset();
  EXPECT_FALSE(State().connected);
  Opened();
}

TEST_F(PortClient, CloseDoesNotWaitForAHandler) {
  handler = [gate = gate](const Bytes&) {
    gate->Pass();
    return Buffer(Reply(2));
  };
  AddNotifications(Notification(4098));
  const auto port = Opened();
  gate->AwaitArrivals(1);
  port->Close();
  port->Wait();
  EXPECT_EQ(Totals().Unjudged(UnjudgedCause::kConnectionEnded), 1u);
  EXPECT_EQ(Totals().inFlight, 0u);
  gate->Open();
  EXPECT_TRUE(Emulator().WaitScenarioFinished(kTestTimeout));
}

TEST_F(PortClient, MayBeClosedAndReleasedInsideAHandler) {
  const auto port = std::make_shared<std::shared_ptr<CPortClient>>();
  AddNotifications(Notification(4098));
  *port = Emulator().MakePortClient(
      kPortNameText, Buffer(ConnectContext()), 196764,
      [port, gate = gate](const void*, std::uint32_t) {
        gate->Pass();
        (*port)->Close();
        port->reset();
        return Buffer(Reply(2));
      },
      1);
  (*port)->Connect();
  (*port)->Start();
  gate->Open();
  EXPECT_TRUE(Emulator().WaitScenarioFinished(kTestTimeout));
  Emulator().Stop();
  EXPECT_EQ(*port, nullptr);
  EXPECT_EQ(Totals().Unjudged(UnjudgedCause::kConnectionEnded), 1u);
}

TEST_F(PortClient, StopEndsTheConnectionAndRefusesTheNext) {
  const auto port = Opened();
  std::thread waiter([&] { port->Wait(); });
  Emulator().Stop();
  waiter.join();
  Emulator().Stop();
  const auto next = Made();
  EXPECT_EQ(FailureOf([&] { next->Connect(); }), "the driver's port is closed");
  EXPECT_EQ(FailureOf([&] { Send(*port, Request(11)); }), "the driver's port is closed");
  EXPECT_EQ(State().protocolViolations, 0u);
}

TEST_F(PortClient, MayOutliveTheEmulator) {
  auto unowned = std::make_unique<DriverEmulator>(settings, scenario);
  const auto port = unowned->MakePortClient(
      kPortNameText, Buffer(ConnectContext()), 196764, [](const void*, std::uint32_t) { return Buffer(Reply(2)); }, 1);
  port->Connect();
  unowned.reset();
  EXPECT_EQ(FailureOf([&] { Send(*port, Request(11)); }), "the driver's port is closed");
  port->Wait();
  port->Close();
}

}  // namespace
}  // namespace fenlux::testing
