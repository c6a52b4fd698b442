// Finds the intended word for a mistyped one.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace fenlux::refhost {

// The number of edits between two words: insert, remove or replace a character, or swap two adjacent ones.
std::size_t EditDistance(std::string_view left, std::string_view right);

// The candidate most similar to `word`: one within a few typing errors, or else one that begins with it. Empty if none.
std::string_view MostSimilar(std::string_view word, const std::vector<std::string_view>& candidates);

// `; did you mean "status"?`, to append to a message about `word`; empty if no candidate is similar.
std::string DidYouMean(std::string_view word, const std::vector<std::string_view>& candidates);

}  // namespace fenlux::refhost
