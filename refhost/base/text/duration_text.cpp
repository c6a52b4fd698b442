// Parses a number and its unit. Not every supported compiler's std::from_chars reads decimals, so this file parses the
// number itself.
#include "refhost/base/text/duration_text.h"

#include <algorithm>
#include <cstdint>
#include <iterator>

namespace fenlux::refhost {
namespace {

struct Unit {
  std::string_view name;
  std::int64_t milliseconds;
};
constexpr Unit kUnits[] = {{"", 1000}, {"ms", 1}, {"s", 1000}, {"m", 60'000}, {"h", 3'600'000}};

constexpr std::size_t kMaxDigits = 12;  // any such number of hours in milliseconds fits in 64 bits

bool IsDigit(char character) { return character >= '0' && character <= '9'; }

std::string_view TakeDigits(std::string_view& text) {
  const auto end = std::ranges::find_if_not(text, IsDigit);
  const std::string_view digits = text.substr(0, static_cast<std::size_t>(end - text.begin()));
  text.remove_prefix(digits.size());
  return digits;
}

std::int64_t Number(std::string_view digits) {
  std::int64_t number = 0;
  for (const char digit : digits) number = number * 10 + (digit - '0');
  return number;
}

}  // namespace

std::optional<std::chrono::milliseconds> ParseDuration(std::string_view text) {
  const std::string_view whole = TakeDigits(text);
  std::string_view decimals;
  if (!whole.empty() && text.starts_with('.')) {
    text.remove_prefix(1);
    decimals = TakeDigits(text);
    if (decimals.empty()) return std::nullopt;
  }
  const auto* const unit = std::ranges::find(kUnits, text, &Unit::name);
  if (whole.empty() || whole.size() > kMaxDigits || unit == std::end(kUnits)) return std::nullopt;
  std::int64_t milliseconds = Number(whole) * unit->milliseconds;
  std::int64_t place = unit->milliseconds;
  for (const char digit : decimals.substr(0, kMaxDigits)) {
    place /= 10;
    milliseconds += (digit - '0') * place;
  }
  const std::chrono::milliseconds duration(milliseconds);
  if (duration.count() < 1 || duration > kMaxDuration) return std::nullopt;
  return duration;
}

}  // namespace fenlux::refhost
