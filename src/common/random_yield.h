// Random pauses at locks, waits and the fake host's calls, so that tests run threads in unusual orders. A normal build
// has none: YieldAtRandom is empty unless the build defines FENLUX_RANDOM_YIELDS, for all files or for none.
#pragma once

#ifdef FENLUX_RANDOM_YIELDS
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <thread>
#endif

namespace fenlux {

#ifdef FENLUX_RANDOM_YIELDS

// Does nothing, lets other threads run, or sleeps for up to 60 microseconds. The environment variable
// FENLUX_YIELD_SEED, a number, selects the sequence; each thread has its own, by the order of the threads' first
// calls. Any thread.
inline void YieldAtRandom() noexcept {
  static const std::uint64_t seed = [] {
    const char* const text = std::getenv("FENLUX_YIELD_SEED");  // NOLINT(concurrency-mt-unsafe)
    return text == nullptr ? std::uint64_t{0} : std::uint64_t{std::strtoull(text, nullptr, 10)};
  }();
  static std::atomic<std::uint64_t> threads{0};
  thread_local std::uint64_t state = (seed << 20) + ++threads;
  // The splitmix64 generator: every state gives a well-mixed number.
  state += 0x9E3779B97F4A7C15;
  std::uint64_t number = state;
  number = (number ^ (number >> 30)) * 0xBF58476D1CE4E5B9;
  number = (number ^ (number >> 27)) * 0x94D049BB133111EB;
  number ^= number >> 31;
  const std::uint64_t choice = number % 16;
  if (choice == 0) {
    std::this_thread::sleep_for(std::chrono::microseconds((number >> 8) % 60));
  } else if (choice < 6) {
    std::this_thread::yield();
  }
}

#else

constexpr void YieldAtRandom() noexcept {}

#endif

}  // namespace fenlux
