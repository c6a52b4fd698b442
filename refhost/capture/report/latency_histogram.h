// Counts of latencies in classes that grow with the latency, so that memory stays small and percentiles are accurate to
// a few percent.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace fenlux::capture {

// Latencies are in nanoseconds.
class LatencyHistogram {
 public:
  void Add(std::uint64_t latency);
  void Add(const LatencyHistogram& other);

  std::uint64_t Count() const { return count; }
  std::uint64_t Max() const { return max; }
  // The latency that the share (0 to 1) of all latencies does not exceed; 0 if there are none.
  std::uint64_t Percentile(double share) const;

  // The classes, for a chart. Class `index` contains the latencies from LowerBound(index) up to LowerBound(index + 1).
  static constexpr std::size_t kClasses = std::size_t{33} * 8;
  static std::uint64_t LowerBound(std::size_t index);
  std::uint32_t CountOf(std::size_t index) const { return counts[index]; }

 private:
  std::array<std::uint32_t, kClasses> counts{};
  std::uint64_t count = 0;
  std::uint64_t max = 0;
};

}  // namespace fenlux::capture
