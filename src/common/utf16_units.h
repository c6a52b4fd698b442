// Reads unaligned little-endian UTF-16.
#pragma once

#include <cstddef>
#include <cstdint>

namespace fenlux {

inline std::uint16_t Utf16Unit(const std::uint8_t* bytes, std::size_t index) {
  return static_cast<std::uint16_t>(bytes[2 * index] | (bytes[2 * index + 1] << 8));
}

// The number of units before the first NUL, or `limit` if there is none.
inline std::size_t Utf16Length(const std::uint8_t* bytes, std::size_t limit) {
  std::size_t length = 0;
  while (length < limit && Utf16Unit(bytes, length) != 0) ++length;
  return length;
}

}  // namespace fenlux
