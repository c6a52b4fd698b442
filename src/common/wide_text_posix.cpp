// Wide text of 32-bit characters; paths are UTF-8.
#include <algorithm>
#include <array>
#include <boost/endian/conversion.hpp>
#include <boost/filesystem/detail/utf8_codecvt_facet.hpp>
#include <cstring>
#include <string>

#include "common/utf16_units.h"
#include "common/wide_text.h"

namespace fenlux {
namespace {

constexpr bool IsSurrogate(std::uint16_t unit) { return (unit & 0xF800) == 0xD800; }
constexpr bool IsHighSurrogate(std::uint32_t unit) { return (unit & 0xFC00) == 0xD800; }
constexpr bool IsLowSurrogate(std::uint32_t unit) { return (unit & 0xFC00) == 0xDC00; }

// Units that are widened at once. Compilers turn loops over this many units into vector instructions.
constexpr std::size_t kBlockSize = 16;
using Block = std::array<std::uint16_t, kBlockSize>;

// Returns the block that begins at unit `index`.
Block BlockAt(const std::uint8_t* bytes, std::size_t index) {
  Block block;
  std::memcpy(block.data(), bytes + 2 * index, sizeof(block));
  for (std::uint16_t& unit : block) unit = boost::endian::little_to_native(unit);
  return block;
}

// Writes the first units into `text`, as many as it is long. Returns whether any is a surrogate.
bool Widen(const std::uint8_t* bytes, std::wstring& text) {
  wchar_t* const characters = text.data();
  const std::size_t length = text.size();
  if (length < kBlockSize) {
    bool anySurrogate = false;
    for (std::size_t index = 0; index < length; ++index) {
      const std::uint16_t unit = Utf16Unit(bytes, index);
      anySurrogate |= IsSurrogate(unit);
      characters[index] = static_cast<wchar_t>(unit);
    }
    return anySurrogate;
  }
  // A flag for each place of a block: to combine the flags in every block would take as long as the rest.
  Block surrogates{};
  const auto widenBlock = [&](std::size_t first) {
    const Block block = BlockAt(bytes, first);
    for (std::size_t index = 0; index < kBlockSize; ++index) {
      surrogates[index] |= static_cast<std::uint16_t>(IsSurrogate(block[index]));
      characters[first + index] = static_cast<wchar_t>(block[index]);
    }
  };
  for (std::size_t first = 0; length - first > kBlockSize; first += kBlockSize) widenBlock(first);
  widenBlock(length - kBlockSize);  // may overlap the block before it
  return std::any_of(surrogates.begin(), surrogates.end(), [](std::uint16_t flag) { return flag != 0; });
}

void JoinSurrogates(std::wstring& text) {
  std::size_t written = 0;
  for (std::size_t read = 0; read < text.size(); ++read) {
    auto character = static_cast<std::uint32_t>(text[read]);
    if (IsHighSurrogate(character) && read + 1 < text.size()) {
      const auto next = static_cast<std::uint32_t>(text[read + 1]);
      if (IsLowSurrogate(next)) {
        character = 0x10000 + ((character - 0xD800) << 10) + (next - 0xDC00);
        ++read;
      }
    }
    text[written++] = static_cast<wchar_t>(character);
  }
  text.resize(written);
}

// Most paths are ASCII, and copying their characters is faster than having the facet convert them.
template <class Text>
bool IsAscii(const Text& text) {
  return std::all_of(text.begin(), text.end(), [](auto character) { return character >= 0 && character < 0x80; });
}

// Never destroyed: detached workers may still convert while the process exits.
const boost::filesystem::path::codecvt_type& Utf8() {
  static const auto& facet = *new boost::filesystem::detail::utf8_codecvt_facet(1);
  return facet;
}

}  // namespace

std::wstring WideFromUtf16(const std::uint8_t* bytes, std::size_t units) {
  std::wstring text(Utf16Length(bytes, units), L'\0');
  if (Widen(bytes, text)) JoinSurrogates(text);
  return text;
}

std::wstring WideFromPath(const boost::filesystem::path& path) {
  const std::string& text = path.native();
  return IsAscii(text) ? std::wstring(text.begin(), text.end()) : path.wstring(Utf8());
}

boost::filesystem::path PathFromWide(const std::wstring& text) {
  if (IsAscii(text)) return std::string(text.begin(), text.end());
  return boost::filesystem::path(text, Utf8());
}

}  // namespace fenlux
