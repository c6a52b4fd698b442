// Converts between bytes and hexadecimal digits.
#include "refhost/base/text/hex.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

namespace fenlux::refhost {
namespace {

std::optional<std::uint8_t> DigitValue(char digit) {
  if (digit >= '0' && digit <= '9') return static_cast<std::uint8_t>(digit - '0');
  if (digit >= 'a' && digit <= 'f') return static_cast<std::uint8_t>(digit - 'a' + 10);
  if (digit >= 'A' && digit <= 'F') return static_cast<std::uint8_t>(digit - 'A' + 10);
  return std::nullopt;
}

}  // namespace

std::string HexText(std::span<const std::uint8_t> bytes) { return fmt::format("{:02x}", fmt::join(bytes, "")); }

std::optional<std::vector<std::uint8_t>> BytesFromHex(std::string_view text) {
  std::vector<std::uint8_t> bytes;
  std::size_t at = 0;
  while (at < text.size()) {
    if (text[at] == ' ') {
      ++at;
      continue;
    }
    const std::optional<std::uint8_t> high = DigitValue(text[at]);
    const std::optional<std::uint8_t> low = at + 1 < text.size() ? DigitValue(text[at + 1]) : std::nullopt;
    if (!high || !low) return std::nullopt;
    bytes.push_back(static_cast<std::uint8_t>((*high << 4) | *low));
    at += 2;
  }
  return bytes;
}

}  // namespace fenlux::refhost
