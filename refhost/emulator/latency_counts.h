// Counts of latencies in fixed buckets: precise enough for quantiles over any period, and small enough to keep many.
#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>

#include "refhost/emulator/emulator_totals.h"

namespace fenlux::refhost {

// Eight buckets per doubling, from about a microsecond to half a minute. Shorter and longer times go to the first
// and the last bucket. Quantiles are accurate to about 12 percent.
struct LatencyCounts {
  static constexpr unsigned kSubBits = 3;
  static constexpr unsigned kMinExponent = 10;  // the first bucket ends at 2^10 nanoseconds
  static constexpr unsigned kDoublings = 25;
  static constexpr std::size_t kBuckets = 1 + (kDoublings << kSubBits);

  std::array<std::uint64_t, kBuckets> buckets{};
  std::uint64_t sumNanoseconds = 0;

  static std::size_t Bucket(std::chrono::nanoseconds latency);
  // The longest time that the bucket counts, except for the last one.
  static std::chrono::nanoseconds UpperEdge(std::size_t bucket);

  std::uint64_t Count() const;
  // `max` is the longest of the recorded times.
  LatencySummary Summary(std::chrono::nanoseconds max) const;
};

}  // namespace fenlux::refhost
