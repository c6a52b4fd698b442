// Events and their latencies over time, in a limited number of intervals whose length adapts to the total time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "refhost/capture/report/latency_histogram.h"

namespace fenlux::capture {

// Times are in nanoseconds, in any order. The first one added begins the line; earlier times count as that time.
class TimeLine {
 public:
  void Add(std::uint64_t time, std::uint64_t latency);

  std::uint64_t Begin() const { return begin; }
  std::uint64_t Interval() const { return interval; }
  // One histogram for each interval.
  const std::vector<LatencyHistogram>& Intervals() const { return intervals; }

 private:
  void Widen();

  std::uint64_t begin = 0;
  std::uint64_t interval = 1'000'000;  // doubled as needed
  std::vector<LatencyHistogram> intervals;
};

}  // namespace fenlux::capture
