// Conversions between UTF-8 (narrow), wide text and UTF-16.
#pragma once

#include <string>
#include <string_view>

namespace fenlux::refhost {

// Each invalid unit becomes U+FFFD; valid characters are never changed. Nothing here throws because of a text's
// content.
std::string NarrowFromWide(std::wstring_view text);
std::wstring WideFromNarrow(std::string_view text);
std::u16string Utf16FromWide(std::wstring_view text);
std::u16string Utf16FromNarrow(std::string_view text);
std::string NarrowFromUtf16(std::u16string_view text);

// Valid UTF-8 on one line, with all characters visible: control characters become "\n", "\t", "\x1b" and the like;
// characters that hide, reorder or break text (U+202E, U+2028, U+200B ...) become "\u202e" and the like, and a
// backslash becomes two, so that no text can be mistaken for an escape. For names and messages from outside, which may
// contain anything.
std::string Printable(std::string_view text);
// Like Printable, but for text of several lines: keeps the line feeds.
std::string PrintableLines(std::string_view text);
// Escapes the same characters in a JSON document without changing its meaning. `json` is valid UTF-8.
std::string PrintableJson(std::string_view json);

}  // namespace fenlux::refhost
