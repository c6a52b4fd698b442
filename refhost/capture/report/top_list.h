// The most frequent keys of a stream of any length, with bounded memory.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

namespace fenlux::capture {

struct TopEntry {
  std::string key;
  std::uint64_t count = 0;
  std::uint64_t time = 0;  // total, in nanoseconds
};

class TopList {
 public:
  void Add(const std::string& key, std::uint64_t time);

  // The first `limit` entries by count or by total time.
  std::vector<TopEntry> ByCount(std::size_t limit) const;
  std::vector<TopEntry> ByTime(std::size_t limit) const;
  // Whether rare keys were dropped, so that the numbers are lower bounds.
  bool Incomplete() const { return incomplete; }

 private:
  struct Numbers {
    std::uint64_t count = 0;
    std::uint64_t time = 0;
  };
  template <typename Before>
  std::vector<TopEntry> Sorted(std::size_t limit, const Before& before) const;
  void ForgetRare();

  std::unordered_map<std::string, Numbers> entries;
  bool incomplete = false;
};

}  // namespace fenlux::capture
