// Finds the word that a mistyped one was meant to be.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace fenlux::refhost {

// How many single changes turn one word into the other: insert, remove or replace a character, or swap two neighbours.
std::size_t EditDistance(std::string_view left, std::string_view right);

// The candidate that is most like `word`: a few typing errors away, or else one that begins with it. Empty if none is.
std::string_view MostSimilar(std::string_view word, const std::vector<std::string_view>& candidates);

// `; did you mean "status"?`, to append to a message about `word`; empty if no candidate is similar.
std::string DidYouMean(std::string_view word, const std::vector<std::string_view>& candidates);

}  // namespace fenlux::refhost
