// Bytes as hexadecimal digits, and back.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace fenlux::refhost {

// Two lower-case digits per byte, without separators.
std::string HexText(std::span<const std::uint8_t> bytes);

// Reads pairs of digits in either case, with any number of blanks before, between and after pairs. Returns nullopt if
// the text contains anything else.
std::optional<std::vector<std::uint8_t>> BytesFromHex(std::string_view text);

}  // namespace fenlux::refhost
