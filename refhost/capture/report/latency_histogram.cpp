// Eight classes for each power of two. Latencies are counted in units of 16 ns; the last class contains everything
// above about a minute.
#include "refhost/capture/report/latency_histogram.h"

#include <algorithm>
#include <bit>
#include <cmath>

namespace fenlux::capture {
namespace {

constexpr int kUnitBits = 4;
constexpr int kStepBits = 3;
constexpr std::uint64_t kSteps = std::uint64_t{1} << kStepBits;

std::size_t ClassOf(std::uint64_t latency) {
  const std::uint64_t units = latency >> kUnitBits;
  if (units < kSteps) return static_cast<std::size_t>(units);
  const int shift = static_cast<int>(std::bit_width(units)) - 1 - kStepBits;  // std::size_t before gcc 13
  const auto index = static_cast<std::size_t>(shift + 1) * kSteps + static_cast<std::size_t>((units >> shift) - kSteps);
  return std::min(index, LatencyHistogram::kClasses - 1);
}

}  // namespace

std::uint64_t LatencyHistogram::LowerBound(std::size_t index) {
  const std::uint64_t group = index / kSteps;
  const std::uint64_t step = index % kSteps;
  if (group == 0) return step << kUnitBits;
  return ((kSteps + step) << (group - 1)) << kUnitBits;
}

void LatencyHistogram::Add(std::uint64_t latency) {
  ++counts[ClassOf(latency)];
  ++count;
  max = std::max(max, latency);
}

void LatencyHistogram::Add(const LatencyHistogram& other) {
  for (std::size_t i = 0; i < kClasses; ++i) counts[i] += other.counts[i];
  count += other.count;
  max = std::max(max, other.max);
}

std::uint64_t LatencyHistogram::Percentile(double share) const {
  if (count == 0) return 0;
  const auto wanted = static_cast<std::uint64_t>(std::ceil(share * static_cast<double>(count)));
  std::uint64_t seen = 0;
  for (std::size_t i = 0; i < kClasses; ++i) {
    seen += counts[i];
    if (counts[i] != 0 && seen >= wanted) return std::min(max, (LowerBound(i) + LowerBound(i + 1)) / 2);
  }
  return max;
}

}  // namespace fenlux::capture
