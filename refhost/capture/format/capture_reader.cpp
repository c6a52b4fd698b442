// Interprets the blocks: sections, interfaces and packets.
#include "refhost/capture/format/capture_reader.h"

#include <algorithm>
#include <utility>

#include "refhost/capture/format/pcapng.h"

namespace fenlux::capture {
namespace {

using namespace pcapng;

constexpr std::size_t kMaxInterfaces = 1024;
// Decoding restores the zeros that were removed from a message. This limits how many a file can demand.
constexpr std::uint64_t kMaxOriginalSize = std::uint64_t{1} << 20;

std::string_view TextOf(std::span<const std::uint8_t> bytes) {
  return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

std::uint64_t PowerOfTen(std::uint32_t exponent) {
  std::uint64_t power = 1;
  for (std::uint32_t i = 0; i < exponent; ++i) power *= 10;
  return power;
}

}  // namespace

CaptureReader::Result CaptureReader::Next() {
  for (;;) {
    BlockView block;
    switch (blocks.Next(block)) {
      case BlockStream::Result::kEnd:
        return Result::kEnd;
      case BlockStream::Result::kDamage:
        return Report(blocks.Offset(), blocks.Damage());
      case BlockStream::Result::kBlock:
        break;
    }
    problem.text.clear();
    bool understood = true;
    if (block.type == kSectionHeader) {
      understood = ReadSection(block);
    } else if (block.type == kInterfaceDescription) {
      understood = ReadInterface(block);
    } else if (block.type == kEnhancedPacket && ReadPacket(block)) {
      return Result::kPacket;
    }
    if (!understood && problem.text.empty()) problem.text = "the block is too short";
    if (!problem.text.empty()) return Report(block.offset, std::move(problem.text));
  }
}

CaptureReader::Result CaptureReader::Report(std::uint64_t offset, std::string text) {
  problem.offset = offset;
  problem.text = std::move(text);
  return Result::kProblem;
}

bool CaptureReader::ReadSection(const BlockView& block) {
  if (block.body.size() < kSectionFixedSize) return false;
  sectionFound = true;
  interfaces.clear();
  if (const std::uint16_t version = block.Read16(4); version != kMajorVersion) {
    problem.text = "version " + std::to_string(version) + " of the file format is unknown; it is read as version 1";
  }
  return true;
}

bool CaptureReader::ReadInterface(const BlockView& block) {
  if (block.body.size() < kInterfaceFixedSize) return false;
  if (interfaces.size() == kMaxInterfaces) {
    problem.text = "the section has too many interfaces; the packets of this one are skipped";
    return true;
  }
  Interface description;
  description.isPort = block.Read16(0) == kLinkTypeUser0;
  std::uint8_t resolution = kDefaultResolution;
  OptionWalk options(block, kInterfaceFixedSize);
  while (const std::optional<BlockOption> option = options.Next()) {
    if (option->code == kInterfaceResolution && !option->value.empty()) resolution = option->value[0];
    if (option->code == kInterfaceOffset && option->value.size() >= 8) {
      const auto at = static_cast<std::size_t>(option->value.data() - block.body.data());
      description.offsetSeconds = static_cast<std::int64_t>(block.Read64(at));
    }
  }
  description.powerOfTwo = (resolution & kPowerOfTwoResolution) != 0;
  description.exponent = resolution & ~kPowerOfTwoResolution;
  interfaces.push_back(description);
  if (!description.isPort) {
    problem.text = "the interface has link type " + std::to_string(block.Read16(0)) + " instead of " +
                   std::to_string(kLinkTypeUser0) + "; its packets are skipped";
  }
  return true;
}

bool CaptureReader::ReadPacket(const BlockView& block) {
  if (block.body.size() < kPacketFixedSize) {
    problem.text = "the packet's block is too short";
    return false;
  }
  const std::uint32_t index = block.Read32(0);
  if (index >= interfaces.size()) {
    problem.text = "the packet belongs to interface " + std::to_string(index) + ", which is not described";
    return false;
  }
  if (!interfaces[index].isPort) return false;
  const std::uint32_t captured = block.Read32(12);
  const std::uint32_t original = block.Read32(16);
  if (captured > block.body.size() - kPacketFixedSize) {
    problem.text = "the packet states " + std::to_string(captured) + " captured bytes, but its block has room for " +
                   std::to_string(block.body.size() - kPacketFixedSize);
    return false;
  }
  if (original < captured || original - captured > kMaxOriginalSize) {
    problem.text = "the packet states an original length of " + std::to_string(original) + " bytes, but has " +
                   std::to_string(captured);
    return false;
  }
  const std::span<const std::uint8_t> payload = block.body.subspan(kPacketFixedSize, captured);
  packet = Packet();
  switch (DecodePayloadHeader(payload, packet.header)) {
    case PayloadError::kTooShort:
      problem.text = "the packet has " + std::to_string(captured) + " bytes, fewer than its header";
      return false;
    case PayloadError::kVersion:
      problem.text = "the packet has version " + std::to_string(payload[0]) + ", which is unknown";
      return false;
    case PayloadError::kNone:
      break;
  }
  packet.time = TimeOf(interfaces[index], std::uint64_t{block.Read32(4)} << 32 | block.Read32(8));
  packet.offset = block.offset;
  packet.originalSize = original - kPayloadHeaderSize;
  packet.message = payload.subspan(kPayloadHeaderSize);
  OptionWalk options(block, kPacketFixedSize + Padded(captured));
  while (const std::optional<BlockOption> option = options.Next()) {
    const auto at = static_cast<std::size_t>(option->value.data() - block.body.data());
    if (option->code == kComment) packet.comment = TextOf(option->value);
    if (option->code == kPacketFlags && option->value.size() >= 4) {
      const std::uint32_t direction = block.Read32(at) & kDirectionMask;
      packet.direction = direction <= 2 ? static_cast<Direction>(direction) : Direction::kUnknown;
    }
    if (option->code == kPacketDropCount && option->value.size() >= 8) packet.dropped = block.Read64(at);
  }
  return true;
}

std::uint64_t CaptureReader::TimeOf(const Interface& interfaceOfPacket, std::uint64_t units) {
  std::uint64_t time = 0;  // absurd values wrap around
  const std::uint32_t exponent = interfaceOfPacket.exponent;
  if (interfaceOfPacket.powerOfTwo) {
    const std::uint64_t seconds = exponent < 64 ? units >> exponent : 0;
    const std::uint64_t fraction = exponent < 64 ? units - (seconds << exponent) : 0;
    const double part = static_cast<double>(fraction) / static_cast<double>(std::uint64_t{1} << (exponent % 64));
    time = seconds * kNanosecondsPerSecond + static_cast<std::uint64_t>(part * 1e9);
  } else if (exponent <= 9) {
    time = units * PowerOfTen(9 - exponent);
  } else {
    time = exponent - 9 < 20 ? units / PowerOfTen(exponent - 9) : 0;
  }
  return time + static_cast<std::uint64_t>(interfaceOfPacket.offsetSeconds) * kNanosecondsPerSecond;
}

}  // namespace fenlux::capture
