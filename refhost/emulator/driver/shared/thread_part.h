// Spreads threads over a fixed number of parts, so that they rarely write to the same memory.
#pragma once

#include <atomic>
#include <cstddef>

namespace fenlux::refhost {

inline constexpr std::size_t kThreadParts = 16;

// The part of the calling thread, below kThreadParts; it never changes. Threads get the parts in turn, so more than
// kThreadParts threads share them.
inline std::size_t PartOfThisThread() {
  static std::atomic<std::size_t> threads{0};
  thread_local const std::size_t part = threads.fetch_add(1, std::memory_order_relaxed) % kThreadParts;
  return part;
}

}  // namespace fenlux::refhost
