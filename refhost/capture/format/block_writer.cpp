// Composes blocks at the end of the caller's bytes. The drop count is the last option of every packet, so that its
// position follows from the block's size.
#include "refhost/capture/format/block_writer.h"

#include <algorithm>
#include <boost/endian/conversion.hpp>

#include "refhost/capture/format/pcapng.h"

namespace fenlux::capture {
namespace {

using namespace pcapng;
namespace endian = boost::endian;

constexpr std::size_t kFlagsSize = 4;
constexpr std::size_t kDropCountSize = 8;
constexpr std::size_t kPacketOptionsSize =
    kOptionHeaderSize + kFlagsSize + kOptionHeaderSize + kDropCountSize + kOptionHeaderSize;
constexpr std::size_t kTimeOffset = kBlockHeaderSize + 4;
constexpr std::size_t kPayloadOffset = kBlockHeaderSize + kPacketFixedSize;
// The distance from the end of a packet's block back to its drop count.
constexpr std::size_t kDropCountDistance = kBlockTrailerSize + kOptionHeaderSize + kDropCountSize;

// A comment explains a failure; longer ones are truncated.
constexpr std::size_t kMaxComment = 1024;

constexpr std::string_view kName = "fenlux port";
constexpr std::string_view kApplication = "fenlux";

void Append16(Bytes& out, std::uint16_t value) {
  const std::size_t at = out.size();
  out.resize(at + 2);
  endian::store_little_u16(&out[at], value);
}

void Append32(Bytes& out, std::uint32_t value) {
  const std::size_t at = out.size();
  out.resize(at + 4);
  endian::store_little_u32(&out[at], value);
}

void Append64(Bytes& out, std::uint64_t value) {
  const std::size_t at = out.size();
  out.resize(at + 8);
  endian::store_little_u64(&out[at], value);
}

void AppendTime(Bytes& out, std::uint64_t time) {
  Append32(out, static_cast<std::uint32_t>(time >> 32));
  Append32(out, static_cast<std::uint32_t>(time));
}

void AppendBytes(Bytes& out, const void* bytes, std::size_t size) {
  const auto* const begin = static_cast<const std::uint8_t*>(bytes);
  out.insert(out.end(), begin, begin + size);
}

void Pad(Bytes& out) { out.resize(Padded(out.size())); }

void AppendOptionHeader(Bytes& out, std::uint16_t code, std::size_t length) {
  Append16(out, code);
  Append16(out, static_cast<std::uint16_t>(length));
}

void AppendTextOption(Bytes& out, std::uint16_t code, std::string_view text) {
  AppendOptionHeader(out, code, text.size());
  AppendBytes(out, text.data(), text.size());
  Pad(out);
}

// Composes one block, which must begin at a multiple of four bytes.
class Block {
 public:
  Block(Bytes& bytes, std::uint32_t type) : out(bytes), begin(bytes.size()) {
    Append32(out, type);
    Append32(out, 0);
  }
  ~Block() = default;
  Block(const Block&) = delete;
  Block& operator=(const Block&) = delete;

  void Finish() {
    const auto size = static_cast<std::uint32_t>(out.size() - begin + kBlockTrailerSize);
    endian::store_little_u32(&out[begin + 4], size);
    Append32(out, size);
  }

 private:
  Bytes& out;
  const std::size_t begin;
};

std::size_t CommentSize(std::string_view comment) {
  return comment.empty() ? 0 : kOptionHeaderSize + Padded(std::min(comment.size(), kMaxComment));
}

}  // namespace

void CutZeros(Packet& packet) {
  std::span<const std::uint8_t> kept = packet.message;
  constexpr std::size_t kWord = sizeof(std::uint64_t);
  while (kept.size() >= kWord && endian::load_little_u64(&kept[kept.size() - kWord]) == 0) {
    kept = kept.first(kept.size() - kWord);
  }
  while (!kept.empty() && kept.back() == 0) kept = kept.first(kept.size() - 1);
  packet.originalSize = packet.message.size();
  packet.message = kept;
}

void AppendFileHeader(Bytes& out) {
  Block section(out, kSectionHeader);
  Append32(out, kByteOrderMagic);
  Append16(out, kMajorVersion);
  Append16(out, kMinorVersion);
  Append64(out, ~std::uint64_t{0});  // length of the section: not stated
  AppendTextOption(out, kSectionApplication, kApplication);
  AppendOptionHeader(out, kEndOfOptions, 0);
  section.Finish();

  Block port(out, kInterfaceDescription);
  Append16(out, kLinkTypeUser0);
  Append16(out, 0);
  Append32(out, 0);  // captured length: no limit
  AppendTextOption(out, kInterfaceName, kName);
  AppendOptionHeader(out, kInterfaceResolution, 1);
  out.push_back(kNanoseconds);
  Pad(out);
  AppendOptionHeader(out, kEndOfOptions, 0);
  port.Finish();
}

std::size_t PacketBlockSize(const Packet& packet) {
  return kPayloadOffset + Padded(kPayloadHeaderSize + packet.message.size()) + CommentSize(packet.comment) +
         kPacketOptionsSize + kBlockTrailerSize;
}

void AppendPacket(Bytes& out, const Packet& packet) {
  Block block(out, kEnhancedPacket);
  Append32(out, 0);  // the interface
  AppendTime(out, packet.time);
  Append32(out, static_cast<std::uint32_t>(kPayloadHeaderSize + packet.message.size()));
  Append32(out, static_cast<std::uint32_t>(kPayloadHeaderSize + packet.originalSize));
  const PayloadHeader header = EncodePayloadHeader(packet.header);
  AppendBytes(out, header.data(), header.size());
  AppendBytes(out, packet.message.data(), packet.message.size());
  Pad(out);
  if (!packet.comment.empty()) AppendTextOption(out, kComment, packet.comment.substr(0, kMaxComment));
  AppendOptionHeader(out, kPacketFlags, kFlagsSize);
  Append32(out, static_cast<std::uint32_t>(DirectionOf(packet.header.kind)));
  AppendOptionHeader(out, kPacketDropCount, kDropCountSize);
  Append64(out, packet.dropped);
  AppendOptionHeader(out, kEndOfOptions, 0);
  block.Finish();
}

void AppendStatistics(Bytes& out, std::uint64_t time, std::uint64_t received, std::uint64_t dropped) {
  Block block(out, kInterfaceStatistics);
  Append32(out, 0);  // the interface
  AppendTime(out, time);
  AppendOptionHeader(out, kStatisticsReceived, sizeof(received));
  Append64(out, received);
  AppendOptionHeader(out, kStatisticsDropped, sizeof(dropped));
  Append64(out, dropped);
  AppendOptionHeader(out, kEndOfOptions, 0);
  block.Finish();
}

PacketHeader HeaderOfBlock(std::span<const std::uint8_t> block) {
  PacketHeader header;
  DecodePayloadHeader(block.subspan(kPayloadOffset), header);
  return header;
}

std::uint64_t BlockTime(std::span<const std::uint8_t> block) {
  return std::uint64_t{endian::load_little_u32(&block[kTimeOffset])} << 32 |
         endian::load_little_u32(&block[kTimeOffset + 4]);
}

void SetBlockTime(std::span<std::uint8_t> block, std::uint64_t time) {
  endian::store_little_u32(&block[kTimeOffset], static_cast<std::uint32_t>(time >> 32));
  endian::store_little_u32(&block[kTimeOffset + 4], static_cast<std::uint32_t>(time));
}

std::uint64_t BlockDropCount(std::span<const std::uint8_t> block) {
  return endian::load_little_u64(&block[block.size() - kDropCountDistance]);
}

void SetBlockDropCount(std::span<std::uint8_t> block, std::uint64_t dropped) {
  endian::store_little_u64(&block[block.size() - kDropCountDistance], dropped);
}

std::span<std::uint8_t> FirstBlock(std::span<std::uint8_t> blocks) {
  return blocks.first(endian::load_little_u32(&blocks[4]));
}

}  // namespace fenlux::capture
