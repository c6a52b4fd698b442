// Validators for the parser. Each returns the error text, which the parser appends to the option's name.
#include "refhost/app/command_line/value_checks.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <boost/algorithm/string/split.hpp>
#include <charconv>
#include <cstdlib>
#include <optional>
#include <string_view>
#include <vector>

#include "refhost/base/text/duration_text.h"
#include "refhost/base/text/similar_words.h"

namespace fenlux::refhost {
namespace {

// The number, if the whole text is one of this type.
template <typename Number>
std::optional<Number> Parse(std::string_view text) {
  Number number{};
  const auto result = std::from_chars(text.data(), text.data() + text.size(), number);
  if (result.ec != std::errc() || result.ptr != text.data() + text.size()) return std::nullopt;
  return number;
}

bool IsBetween(std::string_view text, std::int64_t min, std::uint64_t max) {
  if (const auto number = Parse<std::int64_t>(text)) {
    return *number >= min && (*number < 0 || static_cast<std::uint64_t>(*number) <= max);
  }
  const auto large = Parse<std::uint64_t>(text);
  return large && *large <= max;
}

CLI::Validator Check(std::function<std::string(const std::string&)> check) {
  return CLI::Validator([check = std::move(check)](std::string& text) { return check(text); }, "");
}

}  // namespace

CLI::Validator IntegerBetween(std::int64_t min, std::uint64_t max) {
  return Check([min, max](const std::string& text) {
    if (IsBetween(text, min, max)) return std::string();
    return fmt::format("must be an integer from {} to {}, not \"{}\"", min, max, text);
  });
}

CLI::Validator NotNegative() {
  return Check([](const std::string& text) {
    char* end = nullptr;
    const double number = std::strtod(text.c_str(), &end);
    if (!text.empty() && *end == '\0' && number >= 0) return std::string();
    return fmt::format("must be a number, 0 or more, not \"{}\"", text);
  });
}

CLI::Validator Duration() {
  return Check([](const std::string& text) {
    if (ParseDuration(text)) return std::string();
    return fmt::format("must be seconds, or a number with a unit, such as 300ms, 30s, 5m or 2h, not \"{}\"", text);
  });
}

CLI::Validator OneOf(const std::string& choices) {
  return Check([choices](const std::string& text) {
    std::vector<std::string> words;
    boost::algorithm::split(words, choices, [](char character) { return character == '|'; });
    if (std::ranges::find(words, text) != words.end()) return std::string();
    const std::vector<std::string_view> candidates(words.begin(), words.end());
    return fmt::format("must be {}, not \"{}\"{}", fmt::join(words, " or "), text, DidYouMean(text, candidates));
  });
}

std::chrono::milliseconds DurationOf(const std::string& text) {
  return ParseDuration(text).value_or(std::chrono::milliseconds(0));
}

}  // namespace fenlux::refhost
