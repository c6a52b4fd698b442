// Text for the report's HTML page.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace fenlux::capture {

// Makes any text safe as the content of an element or the value of a quoted attribute: valid UTF-8 without control
// characters or markup.
std::string Escaped(std::string_view text);

// Escapes only markup, for text that already consists of printable lines.
std::string WithoutMarkup(std::string_view printable);

// "812 ns", "41.7 us", "3.20 ms", "1.50 s".
std::string DurationText(std::uint64_t nanoseconds);

}  // namespace fenlux::capture
