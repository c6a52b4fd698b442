// Parses durations such as "30s".
#pragma once

#include <chrono>
#include <optional>
#include <string_view>

namespace fenlux::refhost {

inline constexpr std::chrono::hours kMaxDuration{24 * 366 * 10};

// Parses a number, with or without decimals, and its unit: "300ms", "30s", "5m", "2h". No unit means seconds. Nullopt
// if the text is anything else, or the duration is not between a millisecond and kMaxDuration.
std::optional<std::chrono::milliseconds> ParseDuration(std::string_view text);

}  // namespace fenlux::refhost
