// Groups the messages of each exchange: a request or a notification, its judgement and its reply.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <list>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "refhost/capture/format/packet.h"

namespace fenlux::capture {

// A copy of one message.
struct HeldMessage {
  std::uint64_t time = 0;
  std::uint64_t originalSize = 0;
  std::vector<std::uint8_t> bytes;
  std::string comment;
};

// A message that an exchange may have. Unlike std::optional, it keeps its memory for the next message when it is reset.
class OptionalMessage {
 public:
  explicit operator bool() const { return present; }
  const HeldMessage& operator*() const { return message; }
  HeldMessage& operator*() { return message; }
  const HeldMessage* operator->() const { return &message; }
  HeldMessage* operator->() { return &message; }
  // The message, with whatever it held before.
  HeldMessage& Set() {
    present = true;
    return message;
  }
  void Reset() { present = false; }
  std::size_t Capacity() const { return message.bytes.capacity(); }

 private:
  HeldMessage message;
  bool present = false;
};

// A request or a notification with its judgement and reply, or any other message alone.
struct Exchange {
  PacketHeader header;        // of the first message
  std::uint64_t offset = 0;   // of the first message in the file
  std::uint64_t dropped = 0;  // messages lost before it
  HeldMessage message;
  OptionalMessage judgement;
  OptionalMessage reply;  // empty: none in the capture

  // From message to reply, in nanoseconds; nullopt without a reply, or if the clock was set back in between.
  std::optional<std::uint64_t> Latency() const;
};

// Memory is limited: if too many exchanges wait for their replies, the oldest ones are passed on without them.
// One thread.
class ExchangePairing {
 public:
  using Sink = std::function<void(const Exchange& exchange)>;

  // Calls the sink for every exchange when it is complete, in that order.
  explicit ExchangePairing(Sink exchangeSink) : sink(std::move(exchangeSink)) {}

  void Add(const Packet& packet);
  // Passes on the exchanges that still wait for a reply.
  void Flush();

 private:
  struct Key {
    std::uint32_t connection;
    std::uint64_t exchange;
    bool operator==(const Key&) const = default;
  };
  struct KeyHash {
    std::size_t operator()(const Key& key) const {
      return std::hash<std::uint64_t>()(key.exchange * 31 + key.connection);
    }
  };
  struct Entry {
    Exchange exchange;
    bool indexed = false;
  };
  using Waiting = std::list<Entry>;
  using Index = std::unordered_map<Key, Waiting::iterator, KeyHash>;

  // The waiting exchange that the packet belongs to; the end if there is none.
  Waiting::iterator Find(const PacketHeader& header);
  void Begin(const Packet& packet);
  void AddToIndex(Waiting::iterator entry);
  void GiveOut(Waiting::iterator entry);
  void GiveOutAlone(const Packet& packet);

  const Sink sink;
  Waiting waiting;  // oldest first
  Index index;      // of all waiting exchanges, except that the newest may be missing
  std::size_t waitingBytes = 0;
  // Memory of exchanges that were passed on, for reuse.
  Waiting spare;
  std::vector<Index::node_type> spareNodes;
};

}  // namespace fenlux::capture
