// The codes that the module's log lines carry.
#pragma once

#include <cstdint>

namespace fenlux {

inline constexpr std::uint32_t kLogCode = 0x10003;             // every line but the one below
inline constexpr std::uint32_t kMeasurementLogCode = 0x10034;  // a measurement's result
inline constexpr std::uint32_t kProcessInfoLogCategory = 7;    // CUtility::WriteLog, the refresh thread's lines

}  // namespace fenlux
