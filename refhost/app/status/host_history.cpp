// A ring of seconds, and sums over its newest part.
#include "refhost/app/status/host_history.h"

#include <algorithm>

namespace fenlux::refhost {

bool HostHistory::IsDue(Clock::time_point now) const {
  const MutexLock lock(mutex);
  return lastAdded == Clock::time_point::min() || now - lastAdded >= std::chrono::seconds(1);
}

void HostHistory::Add(Clock::time_point now, const HistoryCounts& counts, std::chrono::nanoseconds longest) {
  const MutexLock lock(mutex);
  Second& second = seconds[next];
  next = (next + 1) % seconds.size();
  second.end = now;
  for (std::size_t bucket = 0; bucket < second.latencies.size(); ++bucket) {
    second.latencies[bucket] =
        static_cast<std::uint32_t>(counts.latencies.buckets[bucket] - last.latencies.buckets[bucket]);
  }
  second.longest = longest;
  second.lostLines = static_cast<std::uint32_t>(counts.lostLines - last.lostLines);
  second.unjudgedByLoad = static_cast<std::uint32_t>(counts.unjudgedByLoad - last.unjudgedByLoad);
  last = counts;
  lastAdded = now;
}

HistoryWindow HostHistory::Window(Clock::time_point now, std::chrono::seconds period, const HistoryCounts& counts,
                                  std::chrono::nanoseconds longest) const {
  const MutexLock lock(mutex);
  HistoryWindow window;
  LatencyCounts latencies = counts.latencies;
  for (std::size_t bucket = 0; bucket < latencies.buckets.size(); ++bucket) {
    latencies.buckets[bucket] -= last.latencies.buckets[bucket];
  }
  window.lostLines = counts.lostLines - last.lostLines;
  window.unjudgedByLoad = counts.unjudgedByLoad - last.unjudgedByLoad;
  for (const Second& second : seconds) {
    if (second.end == Clock::time_point::min() || second.end <= now - period) continue;
    for (std::size_t bucket = 0; bucket < latencies.buckets.size(); ++bucket) {
      latencies.buckets[bucket] += second.latencies[bucket];
    }
    longest = std::max(longest, second.longest);
    window.lostLines += second.lostLines;
    window.unjudgedByLoad += second.unjudgedByLoad;
  }
  window.latency = latencies.Summary(longest);
  return window;
}

}  // namespace fenlux::refhost
