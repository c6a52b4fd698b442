// One tree, two forms.
#include "refhost/base/report.h"

#include <gtest/gtest.h>

namespace fenlux::refhost {
namespace {

Report Sample() {
  Report inner;
  inner.Add("a", 1U);
  inner.Add("longer", false);
  Report report;
  report.Add("name", "x y");
  report.Add("empty_text", "");
  report.Add("number", std::uint64_t{18446744073709551615U});
  report.Add("real", 2.26);
  report.Add("inner", inner);
  report.Add("nothing_at_all", Report());
  report.Add("texts", std::vector<std::string>{"one", "two"});
  report.Add("no_texts", std::vector<std::string>());
  return report;
}

TEST(Report, IsAlignedForPeople) {
  EXPECT_EQ(Sample().Text(),
            "name        x y\n"
            "empty_text  -\n"
            "number      18446744073709551615\n"
            "real        2.3\n"
            "inner\n"
            "  a       1\n"
            "  longer  no\n"
            "nothing_at_all  none\n"
            "texts\n"
            "  one\n"
            "  two\n"
            "no_texts    none\n");
}

TEST(Report, IsOneLineOfJsonForPrograms) {
  EXPECT_EQ(Sample().Json(),
            R"({"name":"x y","empty_text":"","number":18446744073709551615,"real":2.3,"inner":{"a":1,"longer":false},)"
            R"("nothing_at_all":{},"texts":["one","two"],"no_texts":[]})");
}

TEST(Report, EscapesWhatJsonDoesNotTake) {
  EXPECT_EQ(JsonString("a\"b\\c\n\x7f\u00fc"), "\"a\\\"b\\\\c\\u000a\\u007f\u00fc\"");
  EXPECT_EQ(JsonString("\xFFx"), "\"\uFFFDx\"");
}

TEST(Report, AnEmptyOneIsEmptyInBothForms) {
  EXPECT_EQ(Report().Text(), "");
  EXPECT_EQ(Report().Json(), "{}");
}

}  // namespace
}  // namespace fenlux::refhost
