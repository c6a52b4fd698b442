// Spreads threads over a few groups, so that data can have one part for each group.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <thread>
#include <type_traits>

namespace fenlux {

inline constexpr std::size_t kCacheLine = 64;
inline constexpr std::size_t kThreadGroups = 16;

// Returns the group of the calling thread, always the same one, below kThreadGroups. Ids of threads are often at equal
// distances. Two multiplications mix them, so that threads are spread over the groups as if at random, in a fraction of
// the time of std::hash.
inline std::size_t GroupOfThisThread() {
  constexpr std::uint64_t kFactor = 0x9E37'79B9'7F4A'7C15;
  static_assert(kThreadGroups == 16, "the group is the top four bits");
  const std::thread::id thread = std::this_thread::get_id();
  std::uint64_t number = 0;
  static_assert(sizeof(thread) <= sizeof(number) && std::is_trivially_copyable_v<std::thread::id>);
  std::memcpy(&number, &thread, sizeof(thread));
  number *= kFactor;
  number ^= number >> 32;
  number *= kFactor;
  return static_cast<std::size_t>(number >> 60);
}

}  // namespace fenlux
