// All conversions decode one character at a time, so that each invalid unit becomes exactly one replacement. Before
// that, they copy the ASCII characters that most texts consist of.
#include "refhost/base/text/utf_text.h"

#include <fmt/format.h>

#include <algorithm>
#include <boost/locale/utf.hpp>
#include <cstdint>
#include <iterator>
#include <type_traits>

namespace fenlux::refhost {
namespace {

namespace utf = boost::locale::utf;

constexpr utf::code_point kReplacement = 0xFFFD;

// Reads one character and moves `at` past it. A unit that is not part of a valid character is replaced.
template <typename Unit>
utf::code_point Decode(const Unit*& at, const Unit* end) {
  const Unit* const start = at;
  const utf::code_point character = utf::utf_traits<Unit>::decode(at, end);
  if (character != utf::illegal && character != utf::incomplete) return character;
  at = start + 1;
  return kReplacement;
}

template <typename Target, typename Unit>
std::basic_string<Target> Convert(std::basic_string_view<Unit> text) {
  // A lambda, because the compiler does not inline calls through a pointer to a function here.
  const auto isAscii = [](Unit unit) { return static_cast<std::make_unsigned_t<Unit>>(unit) < 0x80; };
  const auto other = std::find_if_not(text.begin(), text.end(), isAscii);
  std::basic_string<Target> converted(text.begin(), other);
  if (other == text.end()) return converted;
  converted.reserve(text.size());
  const Unit* at = text.data() + converted.size();
  const Unit* const end = text.data() + text.size();
  while (at != end) utf::utf_traits<Target>::encode(Decode(at, end), std::back_inserter(converted));
  return converted;
}

struct Range {
  utf::code_point first;
  utf::code_point last;
};
// Unicode's control and format characters (Cc, Cf) and its line and paragraph separators, in ascending order. A
// terminal obeys or hides them, or they reorder the surrounding text.
constexpr Range kHidden[] = {
    {0x00, 0x1F},       {0x7F, 0x9F},       {0xAD, 0xAD},       {0x600, 0x605},     {0x61C, 0x61C},
    {0x6DD, 0x6DD},     {0x70F, 0x70F},     {0x890, 0x891},     {0x8E2, 0x8E2},     {0x180E, 0x180E},
    {0x200B, 0x200F},   {0x2028, 0x202E},   {0x2060, 0x206F},   {0xFEFF, 0xFEFF},   {0xFFF9, 0xFFFB},
    {0x110BD, 0x110BD}, {0x110CD, 0x110CD}, {0x13430, 0x1343F}, {0x1BCA0, 0x1BCA3}, {0x1D173, 0x1D17A},
    {0xE0001, 0xE0001}, {0xE0020, 0xE007F},
};

bool IsHidden(utf::code_point character) {
  const Range* const range = std::lower_bound(std::begin(kHidden), std::end(kHidden), character,
                                              [](const Range& r, utf::code_point c) { return r.last < c; });
  return range != std::end(kHidden) && character >= range->first;
}

// Appends the escape of a hidden character or a backslash.
void AppendEscaped(std::string& out, utf::code_point character) {
  switch (character) {
    case '\\':
      out += "\\\\";
      return;
    case '\n':
      out += "\\n";
      return;
    case '\r':
      out += "\\r";
      return;
    case '\t':
      out += "\\t";
      return;
    default:
      break;
  }
  const char* const format = character > 0xFFFF ? "\\U{:08x}" : character > 0xFF ? "\\u{:04x}" : "\\x{:02x}";
  fmt::format_to(std::back_inserter(out), fmt::runtime(format), static_cast<std::uint32_t>(character));
}

// Copies the text, and calls `escape` for each character for which `escapes` holds.
template <typename Escapes, typename Escape>
std::string Escaped(std::string_view text, const Escapes& escapes, const Escape& escape) {
  std::string out;
  out.reserve(text.size());
  const char* at = text.data();
  const char* const end = at + text.size();
  while (at != end) {
    const utf::code_point character = Decode(at, end);
    if (escapes(character)) {
      escape(out, character);
    } else {
      utf::utf_traits<char>::encode(character, std::back_inserter(out));
    }
  }
  return out;
}

}  // namespace

std::string NarrowFromWide(std::wstring_view text) { return Convert<char>(text); }

std::wstring WideFromNarrow(std::string_view text) { return Convert<wchar_t>(text); }

std::u16string Utf16FromWide(std::wstring_view text) { return Convert<char16_t>(text); }

std::u16string Utf16FromNarrow(std::string_view text) { return Convert<char16_t>(text); }

std::string NarrowFromUtf16(std::u16string_view text) { return Convert<char>(text); }

std::string Printable(std::string_view text) {
  return Escaped(
      text, [](utf::code_point c) { return c == '\\' || IsHidden(c); }, AppendEscaped);
}

std::string PrintableLines(std::string_view text) {
  return Escaped(
      text, [](utf::code_point c) { return c == '\\' || (c != '\n' && IsHidden(c)); }, AppendEscaped);
}

std::string PrintableJson(std::string_view json) {
  // The document's writer has escaped what JSON requires. All other hidden characters are inside strings.
  const auto escape = [](std::string& out, utf::code_point character) {
    char16_t units[2];
    const char16_t* const end = utf::utf_traits<char16_t>::encode(character, units);
    for (const char16_t* unit = units; unit != end; ++unit) {
      fmt::format_to(std::back_inserter(out), "\\u{:04x}", static_cast<std::uint32_t>(*unit));
    }
  };
  return Escaped(
      json, [](utf::code_point c) { return c != '\n' && IsHidden(c); }, escape);
}

}  // namespace fenlux::refhost
