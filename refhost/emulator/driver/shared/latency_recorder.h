// Counts the latencies of notifications without a lock: every delivery thread writes to its own part.
#pragma once

#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>

#include "refhost/emulator/driver/shared/thread_part.h"
#include "refhost/emulator/latency_counts.h"

namespace fenlux::refhost {

// Any thread. Allocates no memory after construction.
class LatencyRecorder {
 public:
  void Add(std::chrono::nanoseconds latency) noexcept {
    Part& part = parts[PartOfThisThread()];
    part.buckets[LatencyCounts::Bucket(latency)].fetch_add(1, std::memory_order_relaxed);
    const auto value = latency.count() < 0 ? std::uint64_t{0} : static_cast<std::uint64_t>(latency.count());
    part.sum.fetch_add(value, std::memory_order_relaxed);
    std::uint64_t max = part.max.load(std::memory_order_relaxed);
    while (value > max && !part.max.compare_exchange_weak(max, value, std::memory_order_relaxed)) {
    }
  }

  // All counts since the start.
  LatencyCounts Counts() const {
    LatencyCounts counts;
    for (const Part& part : parts) {
      for (std::size_t index = 0; index < counts.buckets.size(); ++index) {
        counts.buckets[index] += part.buckets[index].load(std::memory_order_relaxed);
      }
      counts.sumNanoseconds += part.sum.load(std::memory_order_relaxed);
    }
    return counts;
  }

  // The longest time since the last call with `reset`.
  std::chrono::nanoseconds Max(bool reset) {
    std::uint64_t max = 0;
    for (Part& part : parts) {
      const std::uint64_t value =
          reset ? part.max.exchange(0, std::memory_order_relaxed) : part.max.load(std::memory_order_relaxed);
      if (value > max) max = value;
    }
    return std::chrono::nanoseconds(static_cast<std::int64_t>(max));
  }

 private:
  // Adjacent parts share no cache line that both write often: real latencies never fall into the first bucket.
  struct Part {
    std::array<std::atomic<std::uint64_t>, LatencyCounts::kBuckets> buckets{};
    std::atomic<std::uint64_t> sum{0};
    std::atomic<std::uint64_t> max{0};
  };

  std::array<Part, kThreadParts> parts{};
};

}  // namespace fenlux::refhost
