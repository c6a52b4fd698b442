// An exchange begins with a request or a notification and ends with the reply.
#include "refhost/capture/decode/exchange_pairing.h"

#include <iterator>
#include <utility>

namespace fenlux::capture {
namespace {

// Only captures of other hosts, which may lack empty replies, have more open exchanges than a driver has threads.
constexpr std::size_t kMaxWaiting = 65536;
constexpr std::size_t kMaxWaitingBytes = std::size_t{64} << 20;

// How many exchanges' memory to keep for reuse: more than a driver has threads.
constexpr std::size_t kMaxSpare = 64;
constexpr std::size_t kMaxSpareBytes = 4096;

bool IsReply(Kind kind) { return kind == Kind::kRequestReply || kind == Kind::kNotificationReply; }

// The kind that an exchange with this message began with.
Kind FirstKindOf(Kind kind) { return kind == Kind::kRequestReply ? Kind::kRequest : Kind::kNotification; }

// Copies the packet over whatever `held` held before.
void Hold(HeldMessage& held, const Packet& packet) {
  held.time = packet.time;
  held.originalSize = packet.originalSize;
  held.bytes.assign(packet.message.begin(), packet.message.end());
  if (!packet.comment.empty() || !held.comment.empty()) held.comment = packet.comment;
}

void HoldFirst(Exchange& exchange, const Packet& packet) {
  exchange.header = packet.header;
  exchange.offset = packet.offset;
  exchange.dropped = packet.dropped;
  Hold(exchange.message, packet);
}

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
    const Waiting::iterator found = Find(packet.header);
    if (found != waiting.end() && found->exchange.header.kind == FirstKindOf(kind)) {
      Exchange& exchange = found->exchange;
      OptionalMessage& part = IsReply(kind) ? exchange.reply : exchange.judgement;
      if (part) waitingBytes -= part->bytes.size();  // an earlier judgement
      Hold(part.Set(), packet);
      waitingBytes += packet.message.size();
      exchange.dropped += packet.dropped;
      if (IsReply(kind)) GiveOut(found);
      return;
    }
  }
  GiveOutAlone(packet);
}

ExchangePairing::Waiting::iterator ExchangePairing::Find(const PacketHeader& header) {
  const auto matches = [&header](const Entry& entry) {
    const PacketHeader& first = entry.exchange.header;
    return first.exchange == header.exchange && first.connection == header.connection;
  };
  // Usually the newest one; with a single thread, always.
  if (!waiting.empty() && matches(waiting.back())) return std::prev(waiting.end());
  const auto found = index.find({header.connection, header.exchange});
  return found == index.end() ? waiting.end() : found->second;
}

void ExchangePairing::Begin(const Packet& packet) {
  if (const auto earlier = Find(packet.header); earlier != waiting.end()) GiveOut(earlier);
  if (!waiting.empty() && !waiting.back().indexed) AddToIndex(std::prev(waiting.end()));
  if (spare.empty()) spare.emplace_back();
  waiting.splice(waiting.end(), spare, spare.begin());
  HoldFirst(waiting.back().exchange, packet);
  waitingBytes += packet.message.size();
  while (waiting.size() > kMaxWaiting || waitingBytes > kMaxWaitingBytes) GiveOut(waiting.begin());
}

// Not called for an exchange that ends as the newest one, which saves most of the work if one thread delivers.
void ExchangePairing::AddToIndex(Waiting::iterator entry) {
  const Key key{entry->exchange.header.connection, entry->exchange.header.exchange};
  if (spareNodes.empty()) {
    index.emplace(key, entry);
  } else {
    Index::node_type node = std::move(spareNodes.back());
    spareNodes.pop_back();
    node.key() = key;
    node.mapped() = entry;
    index.insert(std::move(node));
  }
  entry->indexed = true;
}

void ExchangePairing::GiveOut(Waiting::iterator entry) {
  Exchange& exchange = entry->exchange;
  sink(exchange);
  waitingBytes -= exchange.message.bytes.size();
  if (exchange.judgement) waitingBytes -= exchange.judgement->bytes.size();
  if (exchange.reply) waitingBytes -= exchange.reply->bytes.size();
  if (entry->indexed) {
    Index::node_type node = index.extract({exchange.header.connection, exchange.header.exchange});
    if (spareNodes.size() < kMaxSpare) spareNodes.push_back(std::move(node));
    entry->indexed = false;
  }
  const std::size_t capacity =
      exchange.message.bytes.capacity() + exchange.judgement.Capacity() + exchange.reply.Capacity();
  if (spare.size() < kMaxSpare && capacity <= kMaxSpareBytes) {
    exchange.judgement.Reset();
    exchange.reply.Reset();
    spare.splice(spare.end(), waiting, entry);
  } else {
    waiting.erase(entry);
  }
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
