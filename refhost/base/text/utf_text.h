// Conversions between UTF-8 (narrow), wide text and UTF-16.
#pragma once

#include <string>
#include <string_view>

namespace fenlux::refhost {

// Each invalid unit becomes U+FFFD; valid characters are never changed. Nothing here throws because of what a text
// contains.
std::string NarrowFromWide(std::wstring_view text);
std::wstring WideFromNarrow(std::string_view text);
std::u16string Utf16FromWide(std::wstring_view text);
std::u16string Utf16FromNarrow(std::string_view text);
std::string NarrowFromUtf16(std::u16string_view text);

// Valid UTF-8 on one line: control characters become "\n", "\t", "\x1b" and the like. For names and messages from
// outside, which may contain anything.
std::string Printable(std::string_view text);

}  // namespace fenlux::refhost
