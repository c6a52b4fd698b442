// Matching of path patterns.
#include "refhost/base/text/glob.h"

#include <gtest/gtest.h>

namespace fenlux::refhost {
namespace {

struct Case {
  const char* pattern;
  const wchar_t* path;
  bool matches;
};

TEST(Glob, MatchesWholePathsComponentByComponent) {
  const Case cases[] = {
      {"/a/b", L"/a/b", true},
      {"/a/b", L"/a/bc", false},
      {"/a/b", L"/a", false},
      {"/a/*", L"/a/b", true},
      {"/a/*", L"/a/b/c", false},
      {"/a/*", L"/a/", true},
      {"/a/**", L"/a/b/c", true},
      {"/a/**/x", L"/a/b/c/x", true},
      {"/a/**/x", L"/a/x", false},
      {"/a/**x", L"/a/x", true},
      {"/a/?", L"/a/b", true},
      {"/a/?", L"/a//", false},
      {"/a/?", L"/a/", false},
      {"/*/c/*.txt", L"/ab/c/d.txt", true},
      {"/*/c/*.txt", L"/ab/c/d.txt.bak", false},
      {"/a*b*c", L"/aXbYbZc", true},
      {"/a*b*c", L"/aXbYbZcd", false},
      {"**", L"/any/thing", true},
      {"/**/b/*/d", L"/x/b/y/b/c/d", true},
      {"/**/b/*/d", L"/x/b/y/b/c/e/d", false},
      {"C:\\*\\x", L"C:\\a\\x", true},
      {"C:\\*\\x", L"C:\\a\\b\\x", false},
      {"/[a]", L"/[a]", true},
      {"/[a]", L"/a", false},
      {"/A", L"/a", false},
      {"/\u00fc?", L"/\u00fc\u00e4", true},
  };
  for (const Case& one : cases) {
    EXPECT_EQ(Glob(one.pattern).Matches(one.path), one.matches) << one.pattern;
  }
}

TEST(Glob, PatternsWithoutSeparatorMatchTheLastComponent) {
  EXPECT_TRUE(Glob("*.secret").Matches(L"/a/b/c.secret"));
  EXPECT_TRUE(Glob("*.secret").Matches(L"C:\\a\\c.secret"));
  EXPECT_TRUE(Glob("*.secret").Matches(L"c.secret"));
  EXPECT_FALSE(Glob("*.secret").Matches(L"/a.secret/b"));
  EXPECT_TRUE(Glob("cat").Matches(L"/usr/bin/cat"));
  EXPECT_FALSE(Glob("cat").Matches(L"/usr/bin/concat"));
  EXPECT_FALSE(Glob("cat").Matches(L""));
  EXPECT_TRUE(Glob("*").Matches(L""));
}

TEST(Glob, ManyStarsAreNotSlow) {
  std::string pattern = "/";
  for (int count = 0; count < 40; ++count) pattern += "a*";
  pattern += "b";
  EXPECT_FALSE(Glob(pattern).Matches(L"/" + std::wstring(4000, L'a')));
}

}  // namespace
}  // namespace fenlux::refhost
