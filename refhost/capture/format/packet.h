// One message of a capture, and the header that precedes its bytes in the packet.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

namespace fenlux::capture {

inline constexpr std::uint64_t kNanosecondsPerSecond = 1'000'000'000;

enum class Kind : std::uint8_t {
  kConnectContext = 1,
  kRequest = 2,
  kRequestReply = 3,  // empty: the request was sent and has no answer
  kNotification = 4,
  kNotificationReply = 5,  // empty: the module sent no reply
  kJudgement = 6,          // UTF-8 JSON, like all that follow except kClosed
  kClosed = 7,             // UTF-8: the reason
  kFacts = 8,
  kCall = 9,
};
inline constexpr std::uint8_t kMinKind = 1;
inline constexpr std::uint8_t kMaxKind = 9;

// The kind's name in output: "connect_context", "request"; "unknown" for any other number.
std::string_view KindName(Kind kind);

enum class Direction : std::uint8_t { kUnknown = 0, kToModule = 1, kFromModule = 2 };

// The direction in which messages of the kind travel.
Direction DirectionOf(Kind kind);

// A packet's payload begins with: u8 version, u8 kind, u16 reserved (0), u32 connection, u64 exchange, little-endian.
inline constexpr std::uint8_t kPayloadVersion = 1;
inline constexpr std::size_t kPayloadHeaderSize = 16;

struct PacketHeader {
  Kind kind{};
  std::uint32_t connection = 0;  // counted from 1; 0: belongs to no connection
  std::uint64_t exchange = 0;    // the same for all messages of an exchange, counted from 1; 0: belongs to none
};

using PayloadHeader = std::array<std::uint8_t, kPayloadHeaderSize>;
PayloadHeader EncodePayloadHeader(const PacketHeader& header);

enum class PayloadError { kNone, kTooShort, kVersion };
// Reads the header at the beginning of `payload`. Accepts every kind and ignores the reserved field.
PayloadError DecodePayloadHeader(std::span<const std::uint8_t> payload, PacketHeader& header);

struct Packet {
  PacketHeader header;
  Direction direction = Direction::kUnknown;
  std::uint64_t time = 0;          // nanoseconds since 1970, UTC
  std::uint64_t dropped = 0;       // messages lost between the previous packet and this one
  std::uint64_t offset = 0;        // of the packet's block in the file
  std::uint64_t originalSize = 0;  // of the message; trailing zeros may have been removed
  std::span<const std::uint8_t> message;
  std::string_view comment;  // why a request or a handler failed; otherwise empty

  std::string_view Text() const { return {reinterpret_cast<const char*>(message.data()), message.size()}; }
};

}  // namespace fenlux::capture
