// Conversions between the three forms of text that a host meets: UTF-8 (narrow), wide text and UTF-16.
#pragma once

#include <string>
#include <string_view>

namespace fenlux::refhost {

// What is no valid text in the source form becomes U+FFFD, so that two different texts of valid characters never become
// one. None of these throws for what a text contains.
std::string NarrowFromWide(std::wstring_view text);
std::wstring WideFromNarrow(std::string_view text);
std::u16string Utf16FromWide(std::wstring_view text);
std::u16string Utf16FromNarrow(std::string_view text);
std::string NarrowFromUtf16(std::u16string_view text);

// Valid UTF-8 on one line: control characters are written as "\n", "\t" or "\x1b", whatever a name or message brings.
std::string Printable(std::string_view text);

}  // namespace fenlux::refhost
