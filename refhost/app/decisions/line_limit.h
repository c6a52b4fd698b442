// Limits how many lines about the same thing are shown.
#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <vector>

namespace fenlux::refhost {

// Admits `kLines` in each interval of `kInterval` for each key, and counts the others. One thread at a time.
template <typename Key>
class LineLimit {
 public:
  using TimePoint = std::chrono::steady_clock::time_point;
  static constexpr std::uint64_t kLines = 10;
  static constexpr std::chrono::seconds kInterval{10};

  struct Hidden {
    Key key;
    std::uint64_t lines;
  };

  bool Admit(const Key& key, TimePoint now) {
    return ++intervals.try_emplace(key, Interval{now}).first->second.lines <= kLines;
  }

  // Ends the intervals whose time has passed and returns those that hid lines. Call it several times per interval: a
  // key's next interval begins only after this has ended the last one.
  std::vector<Hidden> Over(TimePoint now) {
    std::vector<Hidden> hidden;
    for (auto interval = intervals.begin(); interval != intervals.end();) {
      if (now - interval->second.begin < kInterval) {
        ++interval;
        continue;
      }
      if (interval->second.lines > kLines) hidden.push_back({interval->first, interval->second.lines - kLines});
      interval = intervals.erase(interval);
    }
    return hidden;
  }

 private:
  struct Interval {
    TimePoint begin;
    std::uint64_t lines = 0;
  };
  std::map<Key, Interval> intervals;
};

}  // namespace fenlux::refhost
