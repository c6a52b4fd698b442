// Durations as people write them.
#pragma once

#include <chrono>
#include <optional>
#include <string_view>

namespace fenlux::refhost {

inline constexpr std::chrono::hours kMaxDuration{24 * 366 * 10};

// A number, whole or with decimals, and its unit: "300ms", "30s", "5m", "2h". Without a unit it means seconds. Nothing
// if the text is anything else, or the duration is not between a millisecond and kMaxDuration.
std::optional<std::chrono::milliseconds> ParseDuration(std::string_view text);

}  // namespace fenlux::refhost
