// An exchange begins with a request or a notification and ends with the reply.
#include "refhost/capture/decode/exchange_pairing.h"

namespace fenlux::capture {
namespace {

// More exchanges than a driver has threads wait only in captures of other hosts, which may lack empty replies.
constexpr std::size_t kMaxWaiting = 65536;
constexpr std::size_t kMaxWaitingBytes = std::size_t{64} << 20;

void Hold(HeldMessage& held, const Packet& packet) {
  held.time = packet.time;
  held.originalSize = packet.originalSize;
  held.bytes.assign(packet.message.begin(), packet.message.end());
  held.comment = packet.comment;
}

void HoldFirst(Exchange& exchange, const Packet& packet) {
  exchange.header = packet.header;
  exchange.offset = packet.offset;
  exchange.dropped = packet.dropped;
  Hold(exchange.message, packet);
}

bool IsReply(Kind kind) { return kind == Kind::kRequestReply || kind == Kind::kNotificationReply; }

// The kind that an exchange with this message began with.
Kind FirstKindOf(Kind kind) { return kind == Kind::kRequestReply ? Kind::kRequest : Kind::kNotification; }

}  // namespace

std::optional<std::uint64_t> Exchange::Latency() const {
  if (!reply || reply->time < message.time) return std::nullopt;
  return reply->time - message.time;
}

void ExchangePairing::Add(const Packet& packet) {
  const Kind kind = packet.header.kind;
  if (kind == Kind::kRequest || kind == Kind::kNotification) {
    Begin(packet);
    return;
  }
  if (IsReply(kind) || (kind == Kind::kJudgement && packet.header.exchange != 0)) {
    const auto found = index.find({packet.header.connection, packet.header.exchange});
    if (found != index.end() && found->second->header.kind == FirstKindOf(kind)) {
      Exchange& exchange = *found->second;
      HeldMessage& held = IsReply(kind) ? exchange.reply.emplace() : exchange.judgement.emplace();
      Hold(held, packet);
      waitingBytes += held.bytes.size();
      exchange.dropped += packet.dropped;
      if (IsReply(kind)) GiveOut(found->second);
      return;
    }
  }
  GiveOutAlone(packet);
}

void ExchangePairing::Begin(const Packet& packet) {
  const Key key{packet.header.connection, packet.header.exchange};
  if (const auto earlier = index.find(key); earlier != index.end()) GiveOut(earlier->second);
  HoldFirst(waiting.emplace_back(), packet);
  index.emplace(key, std::prev(waiting.end()));
  waitingBytes += packet.message.size();
  while (waiting.size() > kMaxWaiting || waitingBytes > kMaxWaitingBytes) GiveOut(waiting.begin());
}

void ExchangePairing::GiveOut(Waiting::iterator exchange) {
  sink(*exchange);
  waitingBytes -= exchange->message.bytes.size();
  if (exchange->judgement) waitingBytes -= exchange->judgement->bytes.size();
  if (exchange->reply) waitingBytes -= exchange->reply->bytes.size();
  index.erase({exchange->header.connection, exchange->header.exchange});
  waiting.erase(exchange);
}

void ExchangePairing::GiveOutAlone(const Packet& packet) {
  Exchange alone;
  HoldFirst(alone, packet);
  sink(alone);
}

void ExchangePairing::Flush() {
  while (!waiting.empty()) GiveOut(waiting.begin());
}

}  // namespace fenlux::capture
