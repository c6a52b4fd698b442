// Limits that several tables of a configuration share.
#pragma once

#include <cstdint>

namespace fenlux::refhost {

// Of a duration in milliseconds: one hour.
inline constexpr std::uint32_t kMaxMilliseconds = 3'600'000;
// Of threads that deliver notifications or read events.
inline constexpr std::uint32_t kMaxThreads = 64;

}  // namespace fenlux::refhost
