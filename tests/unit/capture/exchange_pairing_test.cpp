// Pairing: which messages make one exchange when several threads deliver at the same time.
#include "refhost/capture/decode/exchange_pairing.h"

#include <gmock/gmock.h>

#include <string>
#include <vector>

namespace fenlux::testing {
namespace {

using namespace fenlux::capture;
using ::testing::ElementsAre;

// Adds messages without bytes, and notes each exchange as "number", with "j" for its judgement and "r" for its reply.
class ExchangePairingTest : public ::testing::Test {
 protected:
  void Add(Kind kind, std::uint64_t exchange, std::uint32_t connection = 1) {
    Packet packet;
    packet.header = {kind, connection, exchange};
    pairing.Add(packet);
  }
  void Begin(std::uint64_t exchange, std::uint32_t connection = 1) { Add(Kind::kNotification, exchange, connection); }
  void Judge(std::uint64_t exchange) { Add(Kind::kJudgement, exchange); }
  void Reply(std::uint64_t exchange, std::uint32_t connection = 1) {
    Add(Kind::kNotificationReply, exchange, connection);
  }

  std::vector<std::string> found;
  ExchangePairing pairing{[this](const Exchange& exchange) {
    found.push_back(std::to_string(exchange.header.exchange) + (exchange.judgement ? "j" : "") +
                    (exchange.reply ? "r" : ""));
  }};
};

TEST_F(ExchangePairingTest, RepliesMayArriveInAnyOrder) {
  for (const std::uint64_t exchange : {1u, 2u, 3u, 4u}) Begin(exchange);
  for (const std::uint64_t exchange : {3u, 1u, 4u, 2u}) Judge(exchange);
  for (const std::uint64_t exchange : {2u, 4u, 1u, 3u}) Reply(exchange);
  EXPECT_THAT(found, ElementsAre("2jr", "4jr", "1jr", "3jr"));
}

TEST_F(ExchangePairingTest, OlderExchangesStayFindableAfterNewerOnesEnd) {
  Begin(1);
  Begin(2);
  Reply(2);
  Begin(3);
  Reply(3);
  Begin(4);
  Reply(1);
  Reply(4);
  EXPECT_THAT(found, ElementsAre("2r", "3r", "1r", "4r"));
}

TEST_F(ExchangePairingTest, AnExchangeThatBeginsAgainEndsTheEarlierOne) {
  Begin(1);
  Begin(2);
  Begin(1);
  Reply(1);
  Reply(2);
  EXPECT_THAT(found, ElementsAre("1", "1r", "2r"));
}

TEST_F(ExchangePairingTest, EqualNumbersOfDifferentConnectionsAreDifferentExchanges) {
  Begin(1, 1);
  Begin(1, 2);
  Begin(1, 3);
  Reply(1, 2);
  pairing.Flush();
  EXPECT_THAT(found, ElementsAre("1r", "1", "1"));
}

// Exchanges reuse the memory of earlier ones, which must leave nothing of those in them.
TEST_F(ExchangePairingTest, NothingOfAnEarlierExchangeIsLeftInALaterOne) {
  Begin(1);
  Judge(1);
  Reply(1);
  Begin(2);
  Begin(3);
  Reply(3);
  Reply(2);
  EXPECT_THAT(found, ElementsAre("1jr", "3r", "2r"));
}

TEST_F(ExchangePairingTest, AnExchangeHasNoCommentOfAnEarlierOne) {
  std::vector<std::string> comments;
  ExchangePairing commented{[&](const Exchange& exchange) {
    comments.push_back(exchange.message.comment);
    comments.push_back(exchange.reply->comment);
  }};
  for (const char* const comment : {"failed", ""}) {
    Packet packet;
    packet.comment = comment;
    packet.header = {Kind::kRequest, 1, 1};
    commented.Add(packet);
    packet.header.kind = Kind::kRequestReply;
    commented.Add(packet);
  }
  EXPECT_THAT(comments, ElementsAre("failed", "failed", "", ""));
}

// The bytes of all waiting exchanges are limited to 64 MiB.
TEST_F(ExchangePairingTest, AJudgementThatReplacesAnotherTakesNoMoreMemory) {
  const std::vector<std::uint8_t> mebibyte(std::size_t{1} << 20);
  Begin(1);
  for (int count = 0; count < 100; ++count) {
    Packet packet;
    packet.header = {Kind::kJudgement, 1, 1};
    packet.message = mebibyte;
    pairing.Add(packet);
  }
  Begin(2);
  Reply(1);
  Reply(2);
  EXPECT_THAT(found, ElementsAre("1jr", "2r"));
}

TEST_F(ExchangePairingTest, ManyExchangesWithoutRepliesArePassedOnOldestFirst) {
  constexpr std::uint64_t kCount = 70'000;
  for (std::uint64_t exchange = 1; exchange <= kCount; ++exchange) Begin(exchange);
  ASSERT_EQ(found.size(), kCount - 65'536);
  EXPECT_EQ(found.front(), "1");
  found.clear();
  Reply(kCount - 1);
  EXPECT_THAT(found, ElementsAre(std::to_string(kCount - 1) + "r"));
  pairing.Flush();
  EXPECT_EQ(found.size(), 65'536u);
}

}  // namespace
}  // namespace fenlux::testing
