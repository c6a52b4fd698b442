// Wide text of 32-bit characters; paths are UTF-8.
#include <boost/filesystem/detail/utf8_codecvt_facet.hpp>

#include "common/utf16_units.h"
#include "common/wide_text.h"

namespace fenlux {
namespace {

constexpr bool IsSurrogate(std::uint32_t unit) { return (unit & 0xF800) == 0xD800; }
constexpr bool IsHighSurrogate(std::uint32_t unit) { return (unit & 0xFC00) == 0xD800; }
constexpr bool IsLowSurrogate(std::uint32_t unit) { return (unit & 0xFC00) == 0xDC00; }

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

// Never destroyed: detached workers may still convert while the process exits.
const boost::filesystem::path::codecvt_type& Utf8() {
  static const auto& facet = *new boost::filesystem::detail::utf8_codecvt_facet(1);
  return facet;
}

}  // namespace

std::wstring WideFromUtf16(const std::uint8_t* bytes, std::size_t units) {
  std::wstring text(Utf16Length(bytes, units), L'\0');
  bool anySurrogate = false;
  for (std::size_t index = 0; index < text.size(); ++index) {
    const std::uint16_t unit = Utf16Unit(bytes, index);
    anySurrogate |= IsSurrogate(unit);
    text[index] = static_cast<wchar_t>(unit);
  }
  if (anySurrogate) JoinSurrogates(text);
  return text;
}

std::wstring WideFromPath(const boost::filesystem::path& path) { return path.wstring(Utf8()); }

boost::filesystem::path PathFromWide(const std::wstring& text) { return boost::filesystem::path(text, Utf8()); }

}  // namespace fenlux
