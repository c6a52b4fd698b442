// The format of times in JSON.
#pragma once

#include <chrono>
#include <string>

namespace fenlux::refhost {

// 2025-01-31T12:00:00.123+01:00, as a pattern of spdlog.
inline constexpr char kTimePattern[] = "%Y-%m-%dT%H:%M:%S.%e%z";

std::string LogTimeText(std::chrono::system_clock::time_point time);

}  // namespace fenlux::refhost
