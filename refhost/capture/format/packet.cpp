// The kinds' names and directions, and the encoding of the payload header.
#include "refhost/capture/format/packet.h"

#include <boost/endian/conversion.hpp>

namespace fenlux::capture {
namespace {

struct KindRow {
  std::string_view name;
  Direction direction;
};

// Indexed by kind.
constexpr KindRow kKinds[] = {
    {"unknown", Direction::kUnknown},       {"connect_context", Direction::kFromModule},
    {"request", Direction::kFromModule},    {"request_reply", Direction::kToModule},
    {"notification", Direction::kToModule}, {"notification_reply", Direction::kFromModule},
    {"judgement", Direction::kToModule},    {"closed", Direction::kUnknown},
    {"facts", Direction::kToModule},        {"call", Direction::kToModule},
};

const KindRow& RowOf(Kind kind) {
  const auto number = static_cast<std::uint8_t>(kind);
  return kKinds[number <= kMaxKind ? number : 0];
}

}  // namespace

std::string_view KindName(Kind kind) { return RowOf(kind).name; }

Direction DirectionOf(Kind kind) { return RowOf(kind).direction; }

PayloadHeader EncodePayloadHeader(const PacketHeader& header) {
  PayloadHeader bytes{kPayloadVersion, static_cast<std::uint8_t>(header.kind)};
  boost::endian::store_little_u32(&bytes[4], header.connection);
  boost::endian::store_little_u64(&bytes[8], header.exchange);
  return bytes;
}

PayloadError DecodePayloadHeader(std::span<const std::uint8_t> payload, PacketHeader& header) {
  if (payload.size() < kPayloadHeaderSize) return PayloadError::kTooShort;
  if (payload[0] != kPayloadVersion) return PayloadError::kVersion;
  header.kind = static_cast<Kind>(payload[1]);
  header.connection = boost::endian::load_little_u32(&payload[4]);
  header.exchange = boost::endian::load_little_u64(&payload[8]);
  return PayloadError::kNone;
}

}  // namespace fenlux::capture
