// Wide text of 16-bit characters, the units that the driver and the path library use too.
#include <bit>
#include <cstring>

#include "common/utf16_units.h"
#include "common/wide_text.h"

namespace fenlux {

std::wstring WideFromUtf16(const std::uint8_t* bytes, std::size_t units) {
  static_assert(sizeof(wchar_t) == sizeof(std::uint16_t) && std::endian::native == std::endian::little);
  std::wstring text(Utf16Length(bytes, units), L'\0');
  std::memcpy(text.data(), bytes, 2 * text.size());
  return text;
}

std::wstring WideFromPath(const boost::filesystem::path& path) { return path.native(); }

boost::filesystem::path PathFromWide(const std::wstring& text) { return text; }

}  // namespace fenlux
