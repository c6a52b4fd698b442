// Doubles the interval's length when there are too many intervals.
#include "refhost/capture/report/time_line.h"

#include <algorithm>

namespace fenlux::capture {
namespace {

constexpr std::size_t kMaxIntervals = 160;

}  // namespace

void TimeLine::Add(std::uint64_t time, std::uint64_t latency) {
  if (intervals.empty()) begin = time;
  const std::uint64_t distance = time < begin ? 0 : time - begin;
  while (distance / interval >= kMaxIntervals) Widen();
  const auto index = static_cast<std::size_t>(distance / interval);
  if (index >= intervals.size()) intervals.resize(index + 1);
  intervals[index].Add(latency);
}

void TimeLine::Widen() {
  interval *= 2;
  for (std::size_t i = 0; i < intervals.size(); ++i) {
    if (i == 0) continue;
    if (i % 2 == 1) {
      intervals[i / 2].Add(intervals[i]);
    } else {
      intervals[i / 2] = intervals[i];
    }
  }
  intervals.resize((intervals.size() + 1) / 2);
}

}  // namespace fenlux::capture
