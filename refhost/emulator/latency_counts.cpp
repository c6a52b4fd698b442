// Computes bucket edges, and quantiles from the counts.
#include "refhost/emulator/latency_counts.h"

#include <algorithm>
#include <bit>
#include <numeric>

namespace fenlux::refhost {

std::size_t LatencyCounts::Bucket(std::chrono::nanoseconds latency) {
  const auto value = static_cast<std::uint64_t>(std::max<std::chrono::nanoseconds::rep>(latency.count(), 0));
  if (value < (std::uint64_t{1} << kMinExponent)) return 0;
  const auto exponent = static_cast<unsigned>(std::bit_width(value)) - 1;
  const std::uint64_t sub = (value >> (exponent - kSubBits)) - (1u << kSubBits);
  const std::size_t bucket = 1 + (static_cast<std::size_t>(exponent - kMinExponent) << kSubBits);
  return std::min(bucket + static_cast<std::size_t>(sub), kBuckets - 1);
}

std::chrono::nanoseconds LatencyCounts::UpperEdge(std::size_t bucket) {
  if (bucket == 0) return std::chrono::nanoseconds((std::int64_t{1} << kMinExponent) - 1);
  const std::size_t shift = kMinExponent - kSubBits + ((bucket - 1) >> kSubBits);
  const auto sub = static_cast<std::int64_t>((bucket - 1) & ((1u << kSubBits) - 1));
  return std::chrono::nanoseconds(((sub + (std::int64_t{1} << kSubBits) + 1) << shift) - 1);
}

std::uint64_t LatencyCounts::Count() const { return std::accumulate(buckets.begin(), buckets.end(), std::uint64_t{0}); }

LatencySummary LatencyCounts::Summary(std::chrono::nanoseconds max) const {
  LatencySummary summary;
  summary.count = Count();
  if (summary.count == 0) return summary;
  const auto quantile = [&](std::uint64_t percent) {
    const std::uint64_t rank = std::max<std::uint64_t>(1, (summary.count * percent + 99) / 100);
    std::uint64_t seen = 0;
    std::size_t bucket = 0;
    while (bucket < kBuckets - 1 && (seen += buckets[bucket]) < rank) ++bucket;
    return bucket == kBuckets - 1 ? max : std::min(UpperEdge(bucket), max);
  };
  summary.p50 = quantile(50);
  summary.p95 = quantile(95);
  summary.p99 = quantile(99);
  summary.max = max;
  return summary;
}

}  // namespace fenlux::refhost
