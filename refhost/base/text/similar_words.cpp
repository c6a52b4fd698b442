// Computes the distance row by row, which is fast enough for words as short as names of settings.
#include "refhost/base/text/similar_words.h"

#include <fmt/format.h>

#include <algorithm>
#include <numeric>

namespace fenlux::refhost {
namespace {

// Comparing takes time proportional to the product of the lengths, and input words may be long.
constexpr std::size_t kMaxLength = 64;
// A shorter prefix would match too many words.
constexpr std::size_t kMinPrefix = 3;

// Longer words may have more errors. If more than a third of the characters are wrong, it is another word.
std::size_t MaxDistance(std::size_t length) { return std::min<std::size_t>(3, (length + 1) / 3); }

}  // namespace

std::size_t EditDistance(std::string_view left, std::string_view right) {
  std::vector<std::size_t> beforeLast(right.size() + 1);
  std::vector<std::size_t> last(right.size() + 1);
  std::vector<std::size_t> row(right.size() + 1);
  std::iota(row.begin(), row.end(), 0);
  for (std::size_t i = 1; i <= left.size(); ++i) {
    beforeLast.swap(last);
    last.swap(row);
    row[0] = i;
    for (std::size_t j = 1; j <= right.size(); ++j) {
      const std::size_t replaced = last[j - 1] + (left[i - 1] == right[j - 1] ? 0 : 1);
      row[j] = std::min({last[j] + 1, row[j - 1] + 1, replaced});
      const bool swapped = i > 1 && j > 1 && left[i - 1] == right[j - 2] && left[i - 2] == right[j - 1];
      if (swapped) row[j] = std::min(row[j], beforeLast[j - 2] + 1);
    }
  }
  return row[right.size()];
}

std::string_view MostSimilar(std::string_view word, const std::vector<std::string_view>& candidates) {
  if (word.empty() || word.size() > kMaxLength) return {};
  std::string_view best;
  std::size_t bestDistance = MaxDistance(word.size()) + 1;
  for (const std::string_view candidate : candidates) {
    const std::size_t distance = EditDistance(word, candidate);
    if (distance >= bestDistance) continue;
    best = candidate;
    bestDistance = distance;
  }
  if (!best.empty() || word.size() < kMinPrefix) return best;
  const auto found = std::ranges::find_if(
      candidates, [&](std::string_view candidate) { return candidate.substr(0, word.size()) == word; });
  return found == candidates.end() ? std::string_view() : *found;
}

std::string DidYouMean(std::string_view word, const std::vector<std::string_view>& candidates) {
  const std::string_view similar = MostSimilar(word, candidates);
  return similar.empty() ? std::string() : fmt::format("; did you mean \"{}\"?", similar);
}

}  // namespace fenlux::refhost
