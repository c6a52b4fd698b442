// If there are too many keys, drops the rare ones: about half of the keys, low in both count and time.
#include "refhost/capture/report/top_list.h"

#include <algorithm>
#include <tuple>

namespace fenlux::capture {
namespace {

constexpr std::size_t kMaxEntries = 20000;

}  // namespace

void TopList::Add(const std::string& key, std::uint64_t time) {
  Numbers& numbers = entries[key];
  ++numbers.count;
  numbers.time += time;
  if (entries.size() > kMaxEntries) ForgetRare();
}

void TopList::ForgetRare() {
  incomplete = true;
  std::vector<TopEntry> kept = ByCount(kMaxEntries / 4);
  for (TopEntry& entry : ByTime(kMaxEntries / 4)) kept.push_back(std::move(entry));
  entries.clear();
  for (const TopEntry& entry : kept) entries[entry.key] = {entry.count, entry.time};
}

template <typename Before>
std::vector<TopEntry> TopList::Sorted(std::size_t limit, const Before& before) const {
  std::vector<TopEntry> sorted;
  sorted.reserve(entries.size());
  for (const auto& [key, numbers] : entries) sorted.push_back({key, numbers.count, numbers.time});
  const auto end = sorted.begin() + static_cast<std::ptrdiff_t>(std::min(limit, sorted.size()));
  std::partial_sort(sorted.begin(), end, sorted.end(), before);
  sorted.erase(end, sorted.end());
  return sorted;
}

std::vector<TopEntry> TopList::ByCount(std::size_t limit) const {
  return Sorted(limit, [](const TopEntry& one, const TopEntry& other) {
    return std::tie(other.count, one.key) < std::tie(one.count, other.key);
  });
}

std::vector<TopEntry> TopList::ByTime(std::size_t limit) const {
  return Sorted(limit, [](const TopEntry& one, const TopEntry& other) {
    return std::tie(other.time, one.key) < std::tie(one.time, other.key);
  });
}

}  // namespace fenlux::capture
