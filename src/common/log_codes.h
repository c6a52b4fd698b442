// Codes and categories of the module's log lines.
#pragma once

#include <cstdint>

namespace fenlux {

inline constexpr std::uint32_t kLogCode = 0x10003;             // every line except the next
inline constexpr std::uint32_t kMeasurementLogCode = 0x10034;  // a measurement's result
inline constexpr std::uint32_t kProcessInfoLogCategory = 7;    // CUtility::WriteLog: lines of the refresh thread

}  // namespace fenlux
