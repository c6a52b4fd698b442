// Numbers threads, so that each can count in memory of its own.
#pragma once

#include <atomic>
#include <cstddef>

namespace fenlux::refhost {

// Threads beyond this number share parts.
inline constexpr std::size_t kThreadParts = 16;

// The part of the calling thread, below kThreadParts: always the same, and another one than those of the threads that
// asked before it.
inline std::size_t PartOfThisThread() {
  static std::atomic<std::size_t> threads{0};
  thread_local const std::size_t part = threads.fetch_add(1, std::memory_order_relaxed) % kThreadParts;
  return part;
}

}  // namespace fenlux::refhost
