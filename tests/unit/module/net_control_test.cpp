// Network control: the mode request and the begin, item, end sequences of the lists.
#include "tests/unit/module/module_test.h"

namespace fenlux::testing {
namespace {

class NetControl : public ModuleTest {
 protected:
  static std::shared_ptr<NetControlItems> Items(std::size_t count) {
    auto items = std::make_shared<NetControlItems>();
    for (std::size_t i = 0; i < count; ++i) {
      NetControlItem item{};
      for (std::size_t k = 0; k < item.opaque.size(); ++k) item.opaque[k] = static_cast<std::uint8_t>(16 * i + k);
      item.value = 0x0A0B0C00u + static_cast<std::uint32_t>(i);
      items->push_back(item);
    }
    return items;
  }

  // The requests sent, as "command:value".
  std::vector<std::string> Sent() const {
    std::vector<std::string> sent;
    for (const SentRequest& request : host.Requests()) {
      EXPECT_EQ(request.bytes.size(), 65561u);
      sent.push_back(std::to_string(request.command) + ":" + std::to_string(request.bytes[12]));
    }
    return sent;
  }

  static Bytes GoldenItem(std::uint8_t listType, std::uint8_t number) {
    Bytes opaque;
    for (std::uint8_t k = 0; k < 48; ++k) opaque.push_back(static_cast<std::uint8_t>(16 * number + k));
    return Golden(65561)
        .Hex(0, "e3 4a a3 29 e7 ff 79 8f  16 00 00 00")
        .Put(12, {listType, 0, 0, 0})
        .Put(16, opaque)
        .Put(64, {number, 0x0C, 0x0B, 0x0A})
        .Get();
  }
};

}  // namespace

TEST_F(NetControl, Mode1IsSentBeforeTheThreeListsAreCleared) {
  const auto interact = ReadyInteract();
  interact->EnterNetControlMode1();
  EXPECT_EQ(Sent(), (Lines{"19:1", "21:1", "23:1", "21:2", "23:2", "21:3", "23:3"}));
  const auto sent = host.Requests();
  EXPECT_TRUE(SameBytes(GoldenRequest("e3 4a a3 29 e7 ff 79 8f  13 00 00 00  01 00 00 00"), sent[0].bytes));
  EXPECT_TRUE(SameBytes(GoldenRequest("e3 4a a3 29 e7 ff 79 8f  15 00 00 00  01 00 00 00"), sent[1].bytes));
  EXPECT_TRUE(SameBytes(GoldenRequest("e3 4a a3 29 e7 ff 79 8f  17 00 00 00  01 00 00 00"), sent[2].bytes));
  EXPECT_TRUE(SameBytes(GoldenRequest("e3 4a a3 29 e7 ff 79 8f  17 00 00 00  03 00 00 00"), sent[6].bytes));
}

TEST_F(NetControl, Mode3IsSentBeforeTheThreeListsAreCleared) {
  const auto interact = ReadyInteract();
  interact->EnterNetControlMode3();
  EXPECT_EQ(Sent(), (Lines{"19:3", "21:1", "23:1", "21:2", "23:2", "21:3", "23:3"}));
}

TEST_F(NetControl, ApplyingLoadsList3BeforeSendingMode2) {
  const auto interact = ReadyInteract();
  interact->ApplyNetControlItems(false, Items(2));
  EXPECT_EQ(Sent(), (Lines{"21:3", "22:3", "22:3", "23:3", "19:2"}));
  const auto sent = host.Requests();
  EXPECT_TRUE(SameBytes(GoldenItem(3, 0), sent[1].bytes));
  EXPECT_TRUE(SameBytes(GoldenItem(3, 1), sent[2].bytes));
  EXPECT_TRUE(SameBytes(GoldenRequest("e3 4a a3 29 e7 ff 79 8f  13 00 00 00  02 00 00 00"), sent[4].bytes));
  EXPECT_TRUE(Logged().empty());
}

TEST_F(NetControl, TheAlternateApplySendsMode4) {
  const auto interact = ReadyInteract();
  interact->ApplyNetControlItems(true, Items(1));
  EXPECT_EQ(Sent(), (Lines{"21:3", "22:3", "23:3", "19:4"}));
}

TEST_F(NetControl, AnEmptyItemHandleIsAnEmptyList) {
  const auto interact = ReadyInteract();
  interact->ApplyNetControlItems(false, nullptr);
  EXPECT_EQ(Sent(), (Lines{"21:3", "23:3", "19:2"}));
}

TEST_F(NetControl, AddingLoadsTheListOfTheType) {
  const auto interact = ReadyInteract();
  interact->AddNetControlItems(1, Items(1));
  interact->AddNetControlItems(2, Items(1));
  EXPECT_EQ(Sent(), (Lines{"21:1", "22:1", "23:1", "21:2", "22:2", "23:2"}));
  EXPECT_TRUE(SameBytes(GoldenItem(2, 0), host.Requests()[4].bytes));
}

TEST_F(NetControl, AddingToAnUnknownListIsRefusedBeforeAnythingIsBuilt) {
  const auto interact = ReadyInteract();
  for (const int type : {-1, 0, 3, 4, 1000}) {
    EXPECT_EQ(RuntimeErrorOf([&] { interact->AddNetControlItems(type, Items(1)); }), "[wdi,ncadp] bad para!");
  }
  EXPECT_TRUE(Gate().Entries().empty());
}

TEST_F(NetControl, AnEmptyListSendsBeginAndEndAndLogsNothing) {
  const auto interact = ReadyInteract();
  interact->AddNetControlItems(1, Items(0));
  EXPECT_EQ(Sent(), (Lines{"21:1", "23:1"}));
  EXPECT_TRUE(Logged().empty());
}

TEST_F(NetControl, FailedItemsAreCountedInOneLineBeforeTheEnd) {
  const auto interact = ReadyInteract();
  // Send 1 begins the list and sends 2 to 6 are its items, of which the second and the fourth fail.
  Gate().FailAt("CPortClient::Send", 3, Failure::kStandard);
  Gate().FailAt("CPortClient::Send", 4, Failure::kInt);
  interact->AddNetControlItems(2, Items(5));
  EXPECT_EQ(Sent(), (Lines{"21:2", "22:2", "22:2", "22:2", "22:2", "22:2", "23:2"})) << "failed attempts are sends too";
  EXPECT_EQ(Logged(), Lines{Problem("[Add Net Control Item Failed!][Failed Counter]=2")});
  const Lines calls = Gate().EntriesOf({"CLog::", "CPortClient::"});
  EXPECT_EQ((Lines(calls.end() - 2, calls.end())), (Lines{Problem("[Add Net Control Item Failed!][Failed Counter]=2"),
                                                          "CPortClient::Send(23, no reply, true)"}));
}

TEST_F(NetControl, AnItemWhoseRequestCannotBeCreatedCountsAsFailed) {
  const auto interact = ReadyInteract();
  Gate().FailAt("CUtility::CreateBuffer", 2, Failure::kPoco);
  Gate().GiveEmptyAt("CUtility::CreateBuffer", 3);
  interact->AddNetControlItems(1, Items(3));
  EXPECT_EQ(Sent(), (Lines{"21:1", "22:1", "23:1"}));
  EXPECT_EQ(Logged(), Lines{Problem("[Add Net Control Item Failed!][Failed Counter]=2")});
}

TEST_F(NetControl, TheCountIsAppendedToTheTranslatedText) {
  const auto interact = ReadyInteract();
  Settings().translate = [](const std::string& text) { return "<" + text + ">"; };
  Gate().FailAlways("CPortClient::Send", Failure::kStandard);
  EXPECT_THROW(interact->AddNetControlItems(1, Items(1)), std::runtime_error) << "the begin request already fails";
  Gate().StopFailing();
  Gate().FailAt("CPortClient::Send", 2, Failure::kStandard);
  interact->AddNetControlItems(1, Items(1));
  EXPECT_EQ(Logged(), Lines{Problem("<[Add Net Control Item Failed!][Failed Counter]=>1")});
}

TEST_F(NetControl, AFailedBeginOrEndPropagates) {
  const auto interact = ReadyInteract();
  for (const Failure failure : kAllFailures) {
    Forget();
    Gate().FailAt("CPortClient::Send", 1, failure);
    EXPECT_TRUE(Propagates(failure, [&] { interact->AddNetControlItems(1, Items(2)); }));
    EXPECT_EQ(Sent(), Lines{"21:1"});
    Forget();
    Gate().FailAt("CPortClient::Send", 4, failure);
    EXPECT_TRUE(Propagates(failure, [&] { interact->AddNetControlItems(1, Items(2)); }));
    EXPECT_EQ(Sent(), (Lines{"21:1", "22:1", "22:1", "23:1"}));
  }
}

TEST_F(NetControl, ARefusedModeDoesNotChangeTheLists) {
  const auto interact = ReadyInteract();
  Gate().FailAt("CPortClient::Send", 1, Failure::kStandard);
  EXPECT_THROW(interact->EnterNetControlMode1(), std::runtime_error);
  EXPECT_EQ(Sent(), Lines{"19:1"});
}

TEST_F(NetControl, AllItemsFailingStillEndsTheListAndSendsTheMode) {
  const auto interact = ReadyInteract();
  for (std::size_t n = 2; n <= 4; ++n) Gate().FailAt("CPortClient::Send", 2, Failure::kInt);
  interact->ApplyNetControlItems(false, Items(3));
  EXPECT_EQ(Sent(), (Lines{"21:3", "22:3", "22:3", "22:3", "23:3", "19:2"}));
  EXPECT_EQ(Logged(), Lines{Problem("[Add Net Control Item Failed!][Failed Counter]=3")});
}

}  // namespace fenlux::testing
