// Suggestions for mistyped words.
#include "refhost/base/text/similar_words.h"

#include <gtest/gtest.h>

namespace fenlux::refhost {
namespace {

TEST(EditDistance, CountsSingleChanges) {
  EXPECT_EQ(EditDistance("", ""), 0U);
  EXPECT_EQ(EditDistance("status", "status"), 0U);
  EXPECT_EQ(EditDistance("", "abc"), 3U);
  EXPECT_EQ(EditDistance("abc", ""), 3U);
  EXPECT_EQ(EditDistance("stats", "status"), 1U);    // one is missing
  EXPECT_EQ(EditDistance("statuss", "status"), 1U);  // one is too many
  EXPECT_EQ(EditDistance("statas", "status"), 1U);   // one is wrong
  EXPECT_EQ(EditDistance("stauts", "status"), 1U);   // two are swapped
  EXPECT_EQ(EditDistance("kitten", "sitting"), 3U);
}

TEST(SimilarWords, AFewTyposSuggestTheNearestWord) {
  const std::vector<std::string_view> words{"reload", "record", "status", "stop"};
  EXPECT_EQ(MostSimilar("stauts", words), "status");
  EXPECT_EQ(MostSimilar("relaod", words), "reload");
  EXPECT_EQ(MostSimilar("recrod", words), "record");
  EXPECT_EQ(MostSimilar("stp", words), "stop");
  EXPECT_EQ(MostSimilar("sumary", words), "");
}

TEST(SimilarWords, NoWordIsSuggestedForAnUnrelatedOne) {
  EXPECT_EQ(MostSimilar("two", {"one", "six"}), "");
  EXPECT_EQ(MostSimilar("x", {"a", "on"}), "");
  EXPECT_EQ(MostSimilar("", {"a"}), "");
  EXPECT_EQ(MostSimilar(std::string(100'000, 'a'), {"aaa"}), "");
  EXPECT_EQ(MostSimilar("status", {}), "");
}

TEST(SimilarWords, APrefixSuggestsTheWholeWord) {
  EXPECT_EQ(MostSimilar("default", {"decision", "default_decision"}), "default_decision");
  EXPECT_EQ(MostSimilar("de", {"decision"}), "");
}

TEST(SimilarWords, TheSuggestionIsAQuestion) {
  EXPECT_EQ(DidYouMean("stauts", {"status"}), "; did you mean \"status\"?");
  EXPECT_EQ(DidYouMean("walk", {"status"}), "");
}

}  // namespace
}  // namespace fenlux::refhost
