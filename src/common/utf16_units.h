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

// Returns the index of the first NUL among four units, the first in the low bits, or 4 if there is none.
constexpr std::size_t FirstNulOfFour(std::uint64_t units) {
  constexpr std::uint64_t kOnes = 0x0001'0001'0001'0001;
  constexpr std::uint64_t kTopBits = 0x8000'8000'8000'8000;
  // Subtracting 1 sets the top bit of a NUL. The borrow may also set that of a later unit, but never of an earlier one.
  const std::uint64_t nuls = (units - kOnes) & ~units & kTopBits;
  return static_cast<std::size_t>(std::countr_zero(nuls)) / 16;
}

// The number of units before the first NUL, or `limit` if there is none.
inline std::size_t Utf16Length(const std::uint8_t* bytes, std::size_t limit) {
  std::size_t length = 0;
  for (; limit - length >= 4; length += 4) {
    std::uint64_t units;
    std::memcpy(&units, bytes + 2 * length, sizeof(units));
    const std::size_t nul = FirstNulOfFour(boost::endian::little_to_native(units));
    if (nul != 4) return length + nul;
  }
  while (length < limit && Utf16Unit(bytes, length) != 0) ++length;
  return length;
}

}  // namespace fenlux
