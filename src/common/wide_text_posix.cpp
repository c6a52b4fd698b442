// Wide text of 32 bits; paths are UTF-8.
#include <boost/filesystem/detail/utf8_codecvt_facet.hpp>

#include "common/utf16_units.h"
#include "common/wide_text.h"

namespace fenlux {
namespace {

constexpr bool IsHighSurrogate(std::uint32_t unit) { return (unit & 0xFC00) == 0xD800; }
constexpr bool IsLowSurrogate(std::uint32_t unit) { return (unit & 0xFC00) == 0xDC00; }

// Never destroyed: detached workers may still convert while the process exits.
const boost::filesystem::path::codecvt_type& Utf8() {
  static const auto& facet = *new boost::filesystem::detail::utf8_codecvt_facet(1);
  return facet;
}

}  // namespace

std::wstring WideFromUtf16(const std::uint8_t* bytes, std::size_t units) {
  const std::size_t length = Utf16Length(bytes, units);
  std::wstring text(length, L'\0');
  std::size_t written = 0;
  for (std::size_t read = 0; read < length; ++read) {
    std::uint32_t character = Utf16Unit(bytes, read);
    if (IsHighSurrogate(character) && read + 1 < length) {
      const std::uint32_t next = Utf16Unit(bytes, read + 1);
      if (IsLowSurrogate(next)) {
        character = 0x10000 + ((character - 0xD800) << 10) + (next - 0xDC00);
        ++read;
      }
    }
    text[written++] = static_cast<wchar_t>(character);
  }
  text.resize(written);
  return text;
}

std::wstring WideFromPath(const boost::filesystem::path& path) { return path.wstring(Utf8()); }

boost::filesystem::path PathFromWide(const std::wstring& text) { return {text, Utf8()}; }

}  // namespace fenlux
