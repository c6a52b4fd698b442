// What the host did in the last ten minutes, second by second: latencies, lost log lines, and operations that load kept
// from being judged.
#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <vector>

#include "common/mutex.h"
#include "refhost/emulator/latency_counts.h"

namespace fenlux::refhost {

// Counts since the host started.
struct HistoryCounts {
  LatencyCounts latencies;
  std::uint64_t lostLines = 0;
  std::uint64_t unjudgedByLoad = 0;
};

// What happened in a period.
struct HistoryWindow {
  LatencySummary latency;
  std::uint64_t lostLines = 0;
  std::uint64_t unjudgedByLoad = 0;
};

// Always takes about half a megabyte. Any thread; no delivery thread uses it.
class HostHistory {
 public:
  using Clock = std::chrono::steady_clock;
  static constexpr std::chrono::seconds kLongest{600};

  HostHistory() : seconds(static_cast<std::size_t>(kLongest.count())) {}

  // Whether it is time for the next call of Add.
  bool IsDue(Clock::time_point now) const;
  // Adds what happened since the last call. `longest` is the longest latency since then. Call it once a second.
  void Add(Clock::time_point now, const HistoryCounts& counts, std::chrono::nanoseconds longest);
  // What happened in the last `period`, which is at most kLongest. `counts` and `longest` are the current ones, so that
  // the result includes what happened since the last Add.
  HistoryWindow Window(Clock::time_point now, std::chrono::seconds period, const HistoryCounts& counts,
                       std::chrono::nanoseconds longest) const;

 private:
  struct Second {
    Clock::time_point end = Clock::time_point::min();
    std::array<std::uint32_t, LatencyCounts::kBuckets> latencies{};
    std::chrono::nanoseconds longest{0};
    std::uint32_t lostLines = 0;
    std::uint32_t unjudgedByLoad = 0;
  };

  mutable Mutex mutex;
  std::vector<Second> seconds FENLUX_GUARDED_BY(mutex);  // a ring
  std::size_t next FENLUX_GUARDED_BY(mutex) = 0;
  Clock::time_point lastAdded FENLUX_GUARDED_BY(mutex) = Clock::time_point::min();
  HistoryCounts last FENLUX_GUARDED_BY(mutex);
};

}  // namespace fenlux::refhost
