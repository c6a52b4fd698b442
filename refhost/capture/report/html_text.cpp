// Escapes text, and formats durations.
#include "refhost/capture/report/html_text.h"

#include <fmt/format.h>

#include "refhost/base/text/utf_text.h"

namespace fenlux::capture {

std::string Escaped(std::string_view text) { return WithoutMarkup(refhost::PrintableLines(text)); }

std::string WithoutMarkup(std::string_view printable) {
  std::string escaped;
  for (const char character : printable) {
    switch (character) {
      case '&':
        escaped += "&amp;";
        break;
      case '<':
        escaped += "&lt;";
        break;
      case '>':
        escaped += "&gt;";
        break;
      case '"':
        escaped += "&quot;";
        break;
      case '\'':
        escaped += "&#39;";
        break;
      default:
        escaped += character;
    }
  }
  return escaped;
}

std::string DurationText(std::uint64_t nanoseconds) {
  const auto value = static_cast<double>(nanoseconds);
  if (nanoseconds < 1000) return fmt::format("{} ns", nanoseconds);
  if (nanoseconds < 1'000'000) return fmt::format("{:.1f} us", value / 1e3);
  if (nanoseconds < 1'000'000'000) return fmt::format("{:.2f} ms", value / 1e6);
  return fmt::format("{:.2f} s", value / 1e9);
}

}  // namespace fenlux::capture
