// All conversions decode one character at a time, so that an invalid unit costs exactly one replacement.
#include "refhost/base/text/utf_text.h"

#include <fmt/format.h>

#include <boost/locale/utf.hpp>
#include <cstdint>
#include <iterator>

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
  std::basic_string<Target> converted;
  converted.reserve(text.size());
  const Unit* at = text.data();
  const Unit* const end = at + text.size();
  while (at != end) utf::utf_traits<Target>::encode(Decode(at, end), std::back_inserter(converted));
  return converted;
}

void AppendEscaped(std::string& out, utf::code_point character) {
  switch (character) {
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
      fmt::format_to(std::back_inserter(out), "\\x{:02x}", static_cast<std::uint32_t>(character));
  }
}

}  // namespace

std::string NarrowFromWide(std::wstring_view text) { return Convert<char>(text); }

std::wstring WideFromNarrow(std::string_view text) { return Convert<wchar_t>(text); }

std::u16string Utf16FromWide(std::wstring_view text) { return Convert<char16_t>(text); }

std::u16string Utf16FromNarrow(std::string_view text) { return Convert<char16_t>(text); }

std::string NarrowFromUtf16(std::u16string_view text) { return Convert<char>(text); }

std::string Printable(std::string_view text) {
  std::string printable;
  printable.reserve(text.size());
  const char* at = text.data();
  const char* const end = at + text.size();
  while (at != end) {
    const utf::code_point character = Decode(at, end);
    const bool control = character < 0x20 || (character >= 0x7F && character < 0xA0);
    if (control) {
      AppendEscaped(printable, character);
    } else {
      utf::utf_traits<char>::encode(character, std::back_inserter(printable));
    }
  }
  return printable;
}

}  // namespace fenlux::refhost
