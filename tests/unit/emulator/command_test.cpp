// Every command of the module: what the driver stores, and which requests it refuses.
#include "tests/unit/emulator/emulator_test.h"

namespace fenlux::testing {
namespace {

using refhost::MonitoredObject;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class Commands : public EmulatorTest {
 protected:
  // Sends the request. The driver must refuse it with this text, count a violation, and change nothing else.
  void ExpectRefused(CPortClient& port, const Bytes& request, const std::string& text) {
    const EmulatorState before = State();
    EXPECT_EQ(FailureOf([&] { Send(port, request); }), "the driver refuses " + text);
    const EmulatorState after = State();
    EXPECT_EQ(after.protocolViolations, before.protocolViolations + 1);
    ASSERT_FALSE(after.violationTexts.empty());
    EXPECT_EQ(after.violationTexts.back(), text);
  }
};

TEST_F(Commands, CommitActivatesObjectsAddedSinceTheLastCommit) {
  const auto port = Opened();
  Send(*port, AddRequest(1, u"/data/one"));
  Send(*port, AddRequest(1, u"C:\\two", u"C:", 0));
  Send(*port, AddRequest(2, u"/data/other type"));
  EXPECT_THAT(State().monitored[0].committed, IsEmpty());
  EXPECT_THAT(State().monitored[0].pending,
              ElementsAre(MonitoredObject{"/data/one", "", true}, MonitoredObject{"C:\\two", "C:", false}));

  Send(*port, Request(3, "01 00 00 00"));
  EXPECT_THAT(State().monitored[0].pending, IsEmpty());
  EXPECT_THAT(State().monitored[0].committed,
              ElementsAre(MonitoredObject{"/data/one", "", true}, MonitoredObject{"C:\\two", "C:", false}));
  EXPECT_EQ(State().monitored[0].commits, 1u);
  EXPECT_EQ(State().monitored[1].pending.size(), 1u);
  EXPECT_EQ(State().monitored[1].commits, 0u);

  Send(*port, Request(3, "01 00 00 00"));  // an empty batch clears
  EXPECT_THAT(State().monitored[0].committed, IsEmpty());
  EXPECT_EQ(State().monitored[0].commits, 2u);
  EXPECT_EQ(State().requests, (std::map<std::uint32_t, std::uint64_t>{{1, 3}, {3, 2}}));
  EXPECT_EQ(State().protocolViolations, 0u);
}

TEST_F(Commands, PathsMayFillTheirFieldsCompletely) {
  const auto port = Opened();
  const std::u16string longest(32768, u'p');
  Send(*port, AddRequest(3, longest, u"abcd"));
  EXPECT_EQ(State().monitored[2].pending.at(0).path, std::string(32768, 'p'));
  EXPECT_EQ(State().monitored[2].pending.at(0).rootName, "abcd");
  Send(*port, AddRequest(3, u"\U0001f427"));
  EXPECT_EQ(State().monitored[2].pending.at(1).path, "\xf0\x9f\x90\xa7");
}

TEST_F(Commands, RefusesInvalidAddsAndCommits) {
  const auto port = Opened();
  ExpectRefused(*port, AddRequest(0, u"/x"), "request 1 (add monitor object): object type 0");
  ExpectRefused(*port, AddRequest(4, u"/x"), "request 1 (add monitor object): object type 4");
  ExpectRefused(*port, AddRequest(1, u"/x", {}, 2), "request 1 (add monitor object): path flag 2");
  ExpectRefused(*port, AddRequest(1, u""), "request 1 (add monitor object): an empty path");
  ExpectRefused(*port, Request(3, "00 00 00 00"), "request 3 (commit monitor objects): object type 0");
  ExpectRefused(*port, Request(3, "04 00 00 00"), "request 3 (commit monitor objects): object type 4");
  for (const auto& set : State().monitored) {
    EXPECT_THAT(set.pending, IsEmpty());
    EXPECT_EQ(set.commits, 0u);
  }
}

TEST_F(Commands, StoresTheClientSwitchesSeparately) {
  const auto port = Opened(2);
  EXPECT_EQ(State().grpmSwitch, std::nullopt);
  Send(*port, Request(4, "02 00 00 00 01"));
  EXPECT_EQ(State().grpmSwitch, true);
  EXPECT_EQ(State().grspSwitch, std::nullopt);
  Send(*port, Request(6, "02 00 00 00 00"));
  EXPECT_EQ(State().grspSwitch, false);
  EXPECT_EQ(State().grpmSwitch, true);
}

TEST_F(Commands, RefusesInvalidClientSwitches) {
  const auto port = Opened();
  ExpectRefused(*port, Request(4, "02 00 00 00 01"),
                "request 4 (grpm switch): client type 2 on a connection of client type 1");
  ExpectRefused(*port, Request(6, "03 00 00 00 01"),
                "request 6 (grsp switch): client type 3 on a connection of client type 1");
  ExpectRefused(*port, Request(4, "01 00 00 00 02"), "request 4 (grpm switch): switch 2");
  ExpectRefused(*port, Request(6, "01 00 00 00 cd"), "request 6 (grsp switch): switch 205");
  EXPECT_EQ(State().grpmSwitch, std::nullopt);
  EXPECT_EQ(State().grspSwitch, std::nullopt);
}

TEST_F(Commands, StoresPlainValues) {
  const auto port = Opened();
  Send(*port, Request(8, "78 56 34 12"));
  EXPECT_EQ(State().grdtoValue, 0x12345678u);
  Send(*port, Request(9, "01"));
  EXPECT_EQ(State().grharaOff, true);
  Send(*port, Request(9, "00"));
  EXPECT_EQ(State().grharaOff, false);
  ExpectRefused(*port, Request(9, "02"), "request 9 (grhara switch): switch 2");
  Send(*port, Request(11));
  Send(*port, Request(11));
  EXPECT_EQ(State().dumps, 2u);
  Send(*port, Request(12, "01 00 ff 02"));
  EXPECT_EQ(State().spspSwitches, (std::array<std::uint8_t, 4>{1, 0, 255, 2}));
}

TEST_F(Commands, StoresNetControlModesAndRefusesInvalidOnes) {
  const auto port = Opened();
  EXPECT_EQ(State().netControlMode, 0u);
  for (std::uint32_t mode = 1; mode <= 4; ++mode) {
    Send(*port, Request(19, "0" + std::to_string(mode) + " 00 00 00"));
    EXPECT_EQ(State().netControlMode, mode);
  }
  ExpectRefused(*port, Request(19, "00 00 00 00"), "request 19 (net control mode): mode 0");
  ExpectRefused(*port, Request(19, "05 00 00 00"), "request 19 (net control mode): mode 5");
  EXPECT_EQ(State().netControlMode, 4u);
}

TEST_F(Commands, StoresSystemProcessesAndRefusesInvalidOnes) {
  const auto port = Opened();
  Send(*port, Request(20, "02 00 00 00  90 01 00 00 00 00 00 00"));
  Send(*port, Request(20, "03 00 00 00  f4 01 00 00 00 00 00 80"));
  EXPECT_EQ(State().systemProcesses, (std::map<std::uint32_t, std::uint64_t>{{2, 400}, {3, 0x80000000000001f4}}));
  ExpectRefused(*port, Request(20, "01 00 00 00  90 01 00 00 00 00 00 00"), "request 20 (system process): kind 1");
  ExpectRefused(*port, Request(20, "02 00 00 00  ff ff ff ff ff ff ff ff"),
                "request 20 (system process): the id that means no process");
}

TEST_F(Commands, AnEndedNetItemListReplacesTheOldOne) {
  const auto port = Opened();
  const std::string opaque =
      "01 02 03 04 05 06 07 08 09 0a 0b 0c 0d 0e 0f 10 11 12 13 14 15 16 17 18 19 1a 1b 1c 1d 1e 1f 20 21 22 23 24 25 "
      "26 "
      "27 28 29 2a 2b 2c 2d 2e 2f 30";
  Send(*port, Request(21, "02 00 00 00"));
  Send(*port, Request(22, "02 00 00 00" + opaque + "dd cc bb aa"));
  Send(*port, Request(22, "02 00 00 00" + opaque + "01 00 00 00"));
  EXPECT_THAT(State().netControlItems[1], IsEmpty());
  Send(*port, Request(23, "02 00 00 00"));
  const auto items = State().netControlItems[1];
  ASSERT_EQ(items.size(), 2u);
  for (std::size_t i = 0; i < 48; ++i) EXPECT_EQ(items[0].opaque[i], i + 1);
  EXPECT_EQ(items[0].value, 0xaabbccddu);
  EXPECT_EQ(items[1].value, 1u);

  Send(*port, Request(21, "02 00 00 00"));
  EXPECT_EQ(State().netControlItems[1].size(), 2u);  // until the list is ended
  Send(*port, Request(23, "02 00 00 00"));
  EXPECT_THAT(State().netControlItems[1], IsEmpty());
}

TEST_F(Commands, NetItemsMustComeBetweenBeginAndEndOfTheirList) {
  const auto port = Opened();
  ExpectRefused(*port, Request(22, "01 00 00 00"), "request 22 (net item): an item of list 1, which has not begun");
  ExpectRefused(*port, Request(23, "01 00 00 00"),
                "request 23 (net item list end): end of list 1, which has not begun");
  Send(*port, Request(21, "01 00 00 00"));
  ExpectRefused(*port, Request(22, "02 00 00 00"), "request 22 (net item): an item of list 2, which has not begun");
  ExpectRefused(*port, Request(23, "02 00 00 00"),
                "request 23 (net item list end): end of list 2, which has not begun");
  ExpectRefused(*port, Request(21, "01 00 00 00"),
                "request 21 (net item list begin): list 1 begun while list 1 is not ended");
  ExpectRefused(*port, Request(21, "03 00 00 00"),
                "request 21 (net item list begin): list 3 begun while list 1 is not ended");
  for (const std::uint32_t command : {21u, 22u, 23u}) {
    EXPECT_THAT(FailureOf([&] { Send(*port, Request(command, "04 00 00 00")); }), ::testing::EndsWith("list type 4"));
    EXPECT_THAT(FailureOf([&] { Send(*port, Request(command, "00 00 00 00")); }), ::testing::EndsWith("list type 0"));
  }
  Send(*port, Request(23, "01 00 00 00"));
}

TEST_F(Commands, StoresTheConfigurationBlockWithoutTrailingZeros) {
  const auto port = Opened();
  EXPECT_EQ(State().configBlock, std::nullopt);
  Bytes request = Request(24, "01 00 02");
  std::fill(request.begin() + 15, request.end(), std::uint8_t{0});
  Send(*port, request);
  EXPECT_EQ(State().configBlock, (Bytes{1, 0, 2}));
  std::fill(request.begin() + 12, request.end(), std::uint8_t{0});
  Send(*port, request);
  EXPECT_EQ(State().configBlock, Bytes());
  std::fill(request.begin() + 12, request.end(), std::uint8_t{7});
  Send(*port, request);
  EXPECT_EQ(State().configBlock, Bytes(65549, 7));
}

TEST_F(Commands, WritesTheVersionIntoTheReplyBuffer) {
  settings.driverVersion = 19072702;
  const auto port = Opened();
  const auto buffer = Buffer(Request(13));
  const auto reply = Send(*port, Request(13), buffer);
  EXPECT_EQ(reply, buffer);
  EXPECT_TRUE(SameBytes(Request(13, "be 06 23 01"), BytesOf(reply)));
  EXPECT_EQ(State().versionsAsked, 1u);
}

TEST_F(Commands, GivesNoVersionWithoutAReplyBuffer) {
  const auto port = Opened();
  EXPECT_EQ(Send(*port, Request(13)), nullptr);
  EXPECT_EQ(State().versionsAsked, 1u);
  EXPECT_EQ(State().protocolViolations, 0u);
}

TEST_F(Commands, AReplyBufferOfTheWrongSizeIsAViolation) {
  const auto port = Opened();
  Send(*port, Request(13), Buffer(Bytes(14, 0xCD)));
  EXPECT_THAT(State().violationTexts, ElementsAre("a version request with a reply buffer of 14 bytes"));
}

TEST_F(Commands, AnswersOtherRequestsWithAnEmptyHandle) {
  const auto port = Opened();
  EXPECT_EQ(Send(*port, Request(11), Buffer(Bytes(4))), nullptr);
}

TEST_F(Commands, RefusesMalformedRequests) {
  const auto port = Opened();
  Bytes request = Request(11);
  request.pop_back();
  ExpectRefused(*port, request, "a request of 65560 bytes");
  request.resize(65562);
  ExpectRefused(*port, request, "a request of 65562 bytes");
  request = Request(11);
  request[0] = 0;
  ExpectRefused(*port, request, "a request without the request's magic");
  for (const std::uint32_t unknown : {0u, 2u, 5u, 7u, 10u, 14u, 18u, 25u}) {
    ExpectRefused(*port, Request(unknown), "a request with the unknown command " + std::to_string(unknown));
  }
  std::shared_ptr<CBuf> reply;
  EXPECT_EQ(FailureOf([&] { port->Send(nullptr, reply, true); }), "the driver refuses a request of 0 bytes");
  EXPECT_THAT(State().requests, IsEmpty());
}

TEST_F(Commands, ASendWithAFlagOfFalseIsAViolation) {
  const auto port = Opened();
  Send(*port, Request(11), nullptr, false);
  EXPECT_THAT(State().violationTexts, ElementsAre("a request sent with a flag of false"));
  EXPECT_EQ(State().dumps, 1u);
}

TEST_F(Commands, ANewConnectionStartsEmptyButKeepsTheViolations) {
  auto port = Opened();
  Send(*port, AddRequest(1, u"/data"));
  Send(*port, Request(3, "01 00 00 00"));
  Send(*port, AddRequest(1, u"/more"));
  Send(*port, Request(19, "01 00 00 00"));
  Send(*port, Request(21, "01 00 00 00"));
  ExpectRefused(*port, Request(19, "09 00 00 00"), "request 19 (net control mode): mode 9");
  port->Close();
  EXPECT_FALSE(State().connected);
  EXPECT_EQ(State().monitored[0].committed.size(), 1u);  // the state before the end

  port = Opened(2);
  const EmulatorState state = State();
  EXPECT_TRUE(state.connected);
  EXPECT_EQ(state.connects, 2u);
  EXPECT_EQ(state.clientType, 2u);
  EXPECT_THAT(state.monitored[0].committed, IsEmpty());
  EXPECT_THAT(state.monitored[0].pending, IsEmpty());
  EXPECT_EQ(state.netControlMode, 0u);
  EXPECT_THAT(state.requests, IsEmpty());
  EXPECT_EQ(state.protocolViolations, 1u);
  EXPECT_EQ(state.violationTexts.size(), 1u);
  Send(*port, Request(21, "01 00 00 00"));  // the list begun on the old connection is forgotten
}

TEST_F(Commands, CarriesOutSendsFromManyThreads) {
  const auto port = Opened();
  std::vector<std::thread> threads;
  for (std::uint32_t type = 1; type <= 3; ++type) {
    threads.emplace_back([&, type] {
      for (int i = 0; i < 50; ++i) Send(*port, AddRequest(type, u"/data"));
    });
  }
  for (std::thread& thread : threads) thread.join();
  for (const auto& set : State().monitored) EXPECT_EQ(set.pending.size(), 50u);
  EXPECT_EQ(State().requests[1], 150u);
}

TEST_F(Commands, KeepsABoundedNumberOfViolationTextsAndCountsAll) {
  const auto port = Opened();
  for (std::size_t i = 0; i < refhost::kMaxViolationTexts + 5; ++i) {
    EXPECT_NE(FailureOf([&] { Send(*port, Request(99)); }), "");
  }
  EXPECT_EQ(State().protocolViolations, refhost::kMaxViolationTexts + 5);
  EXPECT_EQ(State().violationTexts.size(), refhost::kMaxViolationTexts);
}

}  // namespace
}  // namespace fenlux::testing
