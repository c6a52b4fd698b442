// A scanner that implements just enough of TOML to skip strings and comments. After the first syntax error, its result
// does not matter, because the parser stops there, or at the end of a value without quotes that contains the error.
#include "refhost/base/config/toml_text.h"

#include <algorithm>

namespace fenlux::refhost {
namespace {

constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
constexpr std::size_t kDelimiterLength = 3;   // of multi-line strings
constexpr std::size_t kMaxClosingQuotes = 5;  // two may belong to the content

bool IsAllowed(char character) {
  const bool printable = character >= ' ' && character <= '~';
  return printable || character == '\t' || character == '\n' || character == '\r';
}

std::size_t CountQuotes(std::string_view text, std::size_t at, char quote) {
  const std::size_t end = text.find_first_not_of(quote, at);
  return std::min(end, text.size()) - at;
}

// The position after the string whose first quote is at `at`, or of a stray character in it.
std::size_t SkipString(std::string_view text, std::size_t at) {
  const char quote = text[at];
  const std::size_t opening = CountQuotes(text, at, quote);
  if (opening == 2) return at + 2;  // the empty string
  const bool multiline = opening >= kDelimiterLength;
  at += multiline ? kDelimiterLength : 1;
  while (at < text.size()) {
    if (text[at] == '\\' && quote == '"') {
      // At the end of a line, it removes the white space that follows.
      const std::size_t next = text.find_first_not_of(" \t\r\n", at + 1);
      if (next == std::string_view::npos) return text.size();
      if (!IsAllowed(text[next])) return next;
      at = next == at + 1 ? at + 2 : next;
    } else if (text[at] == quote) {
      const std::size_t closing = CountQuotes(text, at, quote);
      if (!multiline) return at + 1;
      if (closing >= kDelimiterLength) return at + std::min(closing, kMaxClosingQuotes);
      at += closing;
    } else if (text[at] == '\n' && !multiline) {
      return at;  // a syntax error
    } else {
      ++at;
    }
  }
  return text.size();
}

// Whether the quote at `at` begins a string. In a value without quotes, it is part of the value for the parser. A dot
// can come before a quote in such a value and in a key; in doubt, the quote begins no string.
bool BeginsString(std::string_view text, std::size_t at) {
  constexpr std::string_view kBefore = " \t\r\n=[{,";
  return at == 0 || kBefore.find(text[at - 1]) != std::string_view::npos;
}

TextPlace PlaceAt(std::string_view text, std::size_t at) {
  const std::string_view before = text.substr(0, at);
  const std::size_t lineStart = before.rfind('\n') + 1;  // 0 if there is no line end
  const auto line = std::count(before.begin(), before.end(), '\n') + 1;
  // Every byte of UTF-8 except continuation bytes starts a character.
  const std::string_view inLine = before.substr(lineStart);
  const auto column = std::count_if(inLine.begin(), inLine.end(),
                                    [](char byte) { return (static_cast<unsigned char>(byte) & 0xC0) != 0x80; }) +
                      1;
  return {static_cast<std::uint32_t>(line), static_cast<std::uint32_t>(column)};
}

}  // namespace

std::optional<TextPlace> FindStrayCharacter(std::string_view text) {
  if (text.starts_with(kByteOrderMark)) text.remove_prefix(kByteOrderMark.size());
  std::size_t at = 0;
  while (at < text.size()) {
    if (text[at] == '#') {
      at = std::min(text.find('\n', at), text.size());
    } else if ((text[at] == '"' || text[at] == '\'') && BeginsString(text, at)) {
      at = SkipString(text, at);
    } else if (!IsAllowed(text[at])) {
      return PlaceAt(text, at);
    } else {
      ++at;
    }
  }
  return std::nullopt;
}

}  // namespace fenlux::refhost
