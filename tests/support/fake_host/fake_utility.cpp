// Text conversions of the fake utility service.
#include "tests/support/fake_host/fake_utility.h"

#include <cstddef>

namespace fenlux::testing {

namespace {

// Decodes UTF-8 without checking it, which is enough for the texts of tests.
std::wstring Widen(const std::string& text) {
  std::wstring out;
  for (std::size_t i = 0; i < text.size();) {
    const auto lead = static_cast<unsigned char>(text[i]);
    const std::size_t length = lead < 0x80 ? 1 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
    std::uint32_t code = length == 1 ? lead : lead & (0xFFu >> (length + 1));
    for (std::size_t k = 1; k < length && i + k < text.size(); ++k) {
      code = code << 6 | (static_cast<unsigned char>(text[i + k]) & 0x3Fu);
    }
    i += length;
    if (sizeof(wchar_t) == 2 && code >= 0x10000) {
      out += static_cast<wchar_t>(0xD800 + ((code - 0x10000) >> 10));
      out += static_cast<wchar_t>(0xDC00 + ((code - 0x10000) & 0x3FF));
    } else {
      out += static_cast<wchar_t>(code);
    }
  }
  return out;
}

}  // namespace

void FakeUtility::CopyToField(void* destination, std::uint32_t limit, const std::wstring& text) {
  core->gate.Pass("CUtility::CopyToField", limit, text);
  auto* const bytes = static_cast<std::uint8_t*>(destination);
  std::size_t at = 0;
  const auto put = [&](std::uint32_t unit) {
    if (at + 2 > limit) return;
    bytes[at++] = static_cast<std::uint8_t>(unit);
    bytes[at++] = static_cast<std::uint8_t>(unit >> 8);
  };
  for (const wchar_t wide : text) {
    const auto code = static_cast<std::uint32_t>(wide);
    if (code >= 0x10000) {
      put(0xD800 + ((code - 0x10000) >> 10));
      put(0xDC00 + ((code - 0x10000) & 0x3FF));
    } else {
      put(code);
    }
  }
  put(0);
}

std::wstring& FakeUtility::ToWideString(std::wstring& out, const std::string& text) {
  core->gate.Pass("CUtility::ToWideString", text);
  out = Widen(text);
  return out;
}

}  // namespace fenlux::testing
