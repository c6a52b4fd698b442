// Limits shared by several tables of a configuration.
#pragma once

#include <cstdint>

namespace fenlux::refhost {

// The longest duration in milliseconds: one hour.
inline constexpr std::uint32_t kMaxMilliseconds = 3'600'000;
// The most threads that deliver notifications or read events.
inline constexpr std::uint32_t kMaxThreads = 64;

}  // namespace fenlux::refhost
