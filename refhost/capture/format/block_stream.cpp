// Reads in large pieces, checks every length, and searches for the next block after a damaged one.
#include "refhost/capture/format/block_stream.h"

#include <algorithm>
#include <cstring>

#include "refhost/capture/format/pcapng.h"

namespace fenlux::capture {
namespace {

using namespace pcapng;

constexpr std::size_t kPiece = std::size_t{1} << 20;
// The step of the search: blocks begin at multiples of it.
constexpr std::size_t kAlignment = 4;
constexpr std::size_t kSectionStart = kBlockHeaderSize + 4;  // including the byte-order magic

bool IsPlausibleLength(std::uint32_t length) {
  return length % kAlignment == 0 && length >= kMinBlockSize && length <= kMaxBlockSize;
}

bool IsKnownType(std::uint32_t type) {
  return type == kSectionHeader || type == kInterfaceDescription || type == kInterfaceStatistics ||
         type == kEnhancedPacket;
}

}  // namespace

BlockStream::Result BlockStream::Next(BlockView& block) {
  Skip(taken);
  taken = 0;
  cutOff = false;
  atEnd = atEnd && !growing;
  if (damaged && !Resynchronize()) return Result::kEnd;
  damaged = false;
  if (!Fill(kBlockHeaderSize) || (Read32(0) == kSectionHeader && !Fill(kSectionStart))) {
    cutOff = Available() > 0;
    return Result::kEnd;
  }
  const std::uint32_t type = Read32(0);
  if (type == kSectionHeader) {
    const std::optional<bool> order = SectionOrder(0);
    if (!order) return ReportDamage("the section header has no byte-order magic");
    bigEndian = *order;
    inSection = true;
  } else if (!inSection) {
    return ReportDamage("there is no section header: this is not a pcapng file, or its beginning is damaged");
  }
  const std::uint32_t length = Read32(4);
  if (!IsPlausibleLength(length)) {
    return ReportDamage("the block states an impossible length of " + std::to_string(length) + " bytes");
  }
  if (!Fill(length)) {
    const std::size_t rest = Available();
    if (growing || !WholeBlockWithin(rest)) {
      cutOff = true;
      return Result::kEnd;
    }
    return ReportDamage("the block states a length of " + std::to_string(length) + " bytes, but only " +
                        std::to_string(rest) + " follow");
  }
  if (const std::uint32_t again = Read32(length - kBlockTrailerSize); again != length) {
    return ReportDamage("the block states two lengths, " + std::to_string(length) + " and " + std::to_string(again) +
                        " bytes");
  }
  block.type = type;
  block.offset = offset;
  block.body = {At(kBlockHeaderSize), length - kMinBlockSize};
  block.bigEndian = bigEndian;
  taken = length;
  return Result::kBlock;
}

bool BlockStream::ReadMore(std::size_t size) {
  while (Available() < size && !atEnd) {
    if (begin > 0) {
      std::memmove(buffer.data(), At(0), Available());
      end -= begin;
      begin = 0;
    }
    buffer.resize(std::max(buffer.size(), end + kPiece));
    stream.clear();
    stream.read(reinterpret_cast<char*>(buffer.data() + end), static_cast<std::streamsize>(kPiece));
    const auto count = static_cast<std::size_t>(stream.gcount());
    end += count;
    atEnd = count < kPiece;
  }
  return Available() >= size;
}

std::uint32_t BlockStream::Read32(std::size_t distance) const { return LoadBlock32(At(distance), bigEndian); }

void BlockStream::Skip(std::size_t size) {
  begin += size;
  offset += size;
}

std::optional<bool> BlockStream::SectionOrder(std::size_t distance) const {
  const std::uint8_t* const magic = At(distance + kBlockHeaderSize);
  if (LoadBlock32(magic, false) == kByteOrderMagic) return false;
  if (LoadBlock32(magic, true) == kByteOrderMagic) return true;
  return std::nullopt;
}

std::optional<std::uint32_t> BlockStream::PlausibleLength(std::size_t distance) const {
  const std::uint32_t type = Read32(distance);
  if (!IsKnownType(type) || (!inSection && type != kSectionHeader)) return std::nullopt;
  bool order = bigEndian;
  if (type == kSectionHeader) {
    const std::optional<bool> stated =
        Available() - distance >= kSectionStart ? SectionOrder(distance) : std::optional<bool>();
    if (!stated) return std::nullopt;
    order = *stated;
  }
  const std::uint32_t length = LoadBlock32(At(distance + 4), order);
  if (!IsPlausibleLength(length)) return std::nullopt;
  return length;
}

bool BlockStream::EndsWhole(std::size_t distance, std::uint32_t length) const {
  // Both lengths have the same byte order, so comparing bytes is enough.
  return std::memcmp(At(distance + 4), At(distance + length - kBlockTrailerSize), 4) == 0;
}

bool BlockStream::WholeBlockWithin(std::size_t size) const {
  for (std::size_t distance = kAlignment; distance + kMinBlockSize <= size; distance += kAlignment) {
    const std::optional<std::uint32_t> length = PlausibleLength(distance);
    if (length && *length <= size - distance && EndsWhole(distance, *length)) return true;
  }
  return false;
}

BlockStream::Result BlockStream::ReportDamage(std::string text) {
  damage = std::move(text);
  damaged = true;
  return Result::kDamage;
}

bool BlockStream::Resynchronize() {
  for (std::size_t step = kAlignment;; step = kAlignment) {
    if (!Fill(step + kSectionStart)) {
      if (!growing) Skip(Available());
      return false;
    }
    Skip(step);
    const std::optional<std::uint32_t> length = PlausibleLength(0);
    if (!length) continue;
    if (!Fill(*length)) {
      if (!growing) continue;
      // Undecided until more is written: the search returns to this position.
      begin -= step;
      offset -= step;
      return false;
    }
    if (EndsWhole(0, *length)) return true;
  }
}

}  // namespace fenlux::capture
