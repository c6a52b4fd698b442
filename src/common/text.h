// Numbers in log lines: plain decimal digits in any locale.
#pragma once

#include <charconv>
#include <concepts>
#include <limits>
#include <string>

namespace fenlux {

template <std::integral Number>
void AppendDecimal(std::string& line, Number number) {
  char digits[std::numeric_limits<Number>::digits10 + 2];
  const auto end = std::to_chars(std::begin(digits), std::end(digits), number).ptr;
  line.append(std::begin(digits), end);
}

}  // namespace fenlux
