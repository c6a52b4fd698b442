// Wide text of 16-bit characters, the units that the driver and the path library use too.
#include "common/utf16_units.h"
#include "common/wide_text.h"

namespace fenlux {

std::wstring WideFromUtf16(const std::uint8_t* bytes, std::size_t units) {
  const std::size_t length = Utf16Length(bytes, units);
  std::wstring text(length, L'\0');
  for (std::size_t index = 0; index < length; ++index) text[index] = static_cast<wchar_t>(Utf16Unit(bytes, index));
  return text;
}

std::wstring WideFromPath(const boost::filesystem::path& path) { return path.native(); }

boost::filesystem::path PathFromWide(const std::wstring& text) { return text; }

}  // namespace fenlux
