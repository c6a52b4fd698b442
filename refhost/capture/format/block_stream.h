// Splits a pcapng stream into blocks. Continues after a block with wrong lengths.
#pragma once

#include <boost/endian/conversion.hpp>
#include <cstdint>
#include <istream>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "refhost/capture/format/pcapng.h"

namespace fenlux::capture {

// The integers and options of blocks are read inline: a large capture has hundreds of millions of them.
inline std::uint32_t LoadBlock32(const std::uint8_t* bytes, bool bigEndian) {
  return bigEndian ? boost::endian::load_big_u32(bytes) : boost::endian::load_little_u32(bytes);
}

// One block. The bytes are valid until the next one is read.
struct BlockView {
  std::uint32_t type = 0;
  std::uint64_t offset = 0;            // in the stream
  std::span<const std::uint8_t> body;  // without the header and the trailing length
  bool bigEndian = false;

  // Integers of the body. The caller checks that they lie within it.
  std::uint16_t Read16(std::size_t at) const {
    return bigEndian ? boost::endian::load_big_u16(&body[at]) : boost::endian::load_little_u16(&body[at]);
  }
  std::uint32_t Read32(std::size_t at) const { return LoadBlock32(&body[at], bigEndian); }
  std::uint64_t Read64(std::size_t at) const {
    return bigEndian ? boost::endian::load_big_u64(&body[at]) : boost::endian::load_little_u64(&body[at]);
  }
};

struct BlockOption {
  std::uint16_t code = 0;
  std::span<const std::uint8_t> value;
};

// Iterates over the options from `start` to the end of the body. An option that does not fit ends the iteration.
class OptionWalk {
 public:
  OptionWalk(const BlockView& blockView, std::size_t start) : block(blockView), at(start) {}
  std::optional<BlockOption> Next() {
    const std::size_t size = block.body.size();
    if (at > size || size - at < pcapng::kOptionHeaderSize) return std::nullopt;
    const std::uint16_t code = block.Read16(at);
    const std::uint16_t length = block.Read16(at + 2);
    if (code == pcapng::kEndOfOptions || size - at - pcapng::kOptionHeaderSize < length) return std::nullopt;
    const BlockOption option{code, block.body.subspan(at + pcapng::kOptionHeaderSize, length)};
    at += pcapng::kOptionHeaderSize + pcapng::Padded(length);
    return option;
  }

 private:
  const BlockView& block;
  std::size_t at;
};

// One thread.
class BlockStream {
 public:
  explicit BlockStream(std::istream& input) : stream(input) {}

  enum class Result { kBlock, kDamage, kEnd };
  // kDamage: Offset() is where the damage begins and Damage() describes it. The next call continues at the next
  // position that looks like a whole block.
  Result Next(BlockView& block);

  std::uint64_t Offset() const { return offset; }
  const std::string& Damage() const { return damage; }
  bool CutOff() const { return cutOff; }
  void SetGrowing(bool isGrowing) { growing = isGrowing; }

 private:
  // Makes `size` bytes available from the current position; false if the stream has fewer.
  bool Fill(std::size_t size) { return Available() >= size || ReadMore(size); }
  bool ReadMore(std::size_t size);
  const std::uint8_t* At(std::size_t distance) const { return buffer.data() + begin + distance; }
  std::size_t Available() const { return end - begin; }
  std::uint32_t Read32(std::size_t distance) const;
  void Skip(std::size_t size);
  // The byte order that a section header at `distance` states; nullopt if there is none.
  std::optional<bool> SectionOrder(std::size_t distance) const;
  // The length that a block at `distance`, whose header is available, states; nullopt if it cannot be a block.
  std::optional<std::uint32_t> PlausibleLength(std::size_t distance) const;
  // Whether a block, available as a whole, repeats that length at its end.
  bool EndsWhole(std::size_t distance, std::uint32_t length) const;
  // Whether a whole block follows later within the next `size` bytes, which are available.
  bool WholeBlockWithin(std::size_t size) const;
  Result ReportDamage(std::string text);
  // Moves to the next position that looks like a block; false at the end of the stream.
  bool Resynchronize();

  std::istream& stream;
  std::vector<std::uint8_t> buffer;
  std::size_t begin = 0, end = 0;  // of the bytes read and not yet consumed
  std::uint64_t offset = 0;        // of `begin` in the stream
  std::size_t taken = 0;           // size of the block that Next returned last
  std::string damage;
  bool bigEndian = false;
  bool growing = false;
  bool inSection = false;
  bool atEnd = false;
  bool cutOff = false;
  bool damaged = false;  // Next begins with a search for the next block
};

}  // namespace fenlux::capture
