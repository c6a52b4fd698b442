// Reads unaligned little-endian UTF-16.
#pragma once

#include <bit>
#include <boost/endian/conversion.hpp>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace fenlux {

inline std::uint16_t Utf16Unit(const std::uint8_t* bytes, std::size_t index) {
  return static_cast<std::uint16_t>(bytes[2 * index] | (bytes[2 * index + 1] << 8));
}

// Returns a number with the top bit of the first NUL among four units set, or 0 if there is none. The first unit is in
// the low bits.
constexpr std::uint64_t NulsOfFour(std::uint64_t units) {
  constexpr std::uint64_t kOnes = 0x0001'0001'0001'0001;
  constexpr std::uint64_t kTopBits = 0x8000'8000'8000'8000;
  // Subtracting 1 sets the top bit of a NUL. The borrow may also set that of a later unit, but never of an earlier one.
  return (units - kOnes) & ~units & kTopBits;
}

// Returns four units, the first in the low bits.
inline std::uint64_t FourUnits(const std::uint8_t* bytes, std::size_t index) {
  std::uint64_t units;
  std::memcpy(&units, bytes + 2 * index, sizeof(units));
  return boost::endian::little_to_native(units);
}

// The number of units before the first NUL, or `limit` if there is none. Skips as many units as it can at once.
inline std::size_t Utf16Length(const std::uint8_t* bytes, std::size_t limit) {
  std::size_t length = 0;
  for (; limit - length >= 16; length += 16) {
    if ((NulsOfFour(FourUnits(bytes, length)) | NulsOfFour(FourUnits(bytes, length + 4)) |
         NulsOfFour(FourUnits(bytes, length + 8)) | NulsOfFour(FourUnits(bytes, length + 12))) != 0) {
      break;
    }
  }
  for (; limit - length >= 4; length += 4) {
    const std::uint64_t nuls = NulsOfFour(FourUnits(bytes, length));
    if (nuls != 0) return length + static_cast<std::size_t>(std::countr_zero(nuls)) / 16;
  }
  while (length < limit && Utf16Unit(bytes, length) != 0) ++length;
  return length;
}

}  // namespace fenlux
