// The two forms of a report.
#include "refhost/base/report.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace fenlux::refhost {
namespace {

Report Sample() {
  Report inner = Report::object();
  inner["a"] = 1U;
  inner["longer"] = false;
  Report report = Report::object();
  report["name"] = "x y";
  report["empty_text"] = "";
  report["number"] = std::uint64_t{18446744073709551615U};
  report["real"] = RoundToTenths(2.26);
  report["inner"] = inner;
  report["nothing_at_all"] = Report::object();
  report["texts"] = std::vector<std::string>{"one", "two"};
  report["no_texts"] = std::vector<std::string>();
  return report;
}

TEST(Report, IsAlignedText) {
  EXPECT_EQ(AlignedText(Sample()),
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

TEST(Report, IsOneLineOfJson) {
  EXPECT_EQ(JsonText(Sample()),
            R"({"name":"x y","empty_text":"","number":18446744073709551615,"real":2.3,"inner":{"a":1,"longer":false},)"
            R"("nothing_at_all":{},"texts":["one","two"],"no_texts":[]})");
}

TEST(Report, EscapesControlCharactersAndReplacesInvalidBytesInJson) {
  EXPECT_EQ(JsonText("a\"b\\c\n\x01\x7f\u00fc"), "\"a\\\"b\\\\c\\n\\u0001\\u007f\u00fc\"");
  EXPECT_EQ(JsonText("\xFFx"), "\"\uFFFDx\"");
  EXPECT_EQ(JsonText("\u202ex\u2028\U000e0041"), R"("\u202ex\u2028\udb40\udc41")");
  EXPECT_EQ(Report::parse(JsonText("a\\\u202e\U000e0041\x7f")), Report("a\\\u202e\U000e0041\x7f"));
}

TEST(Report, EscapesControlCharactersInText) {
  Report report = Report::object();
  report["path"] = "a\n\x1b[31m";
  report["paths"] = std::vector<std::string>{"b\r\u202e\\"};
  EXPECT_EQ(AlignedText(report), "path   a\\n\\x1b[31m\npaths\n  b\\r\\u202e\\\\\n");
}

TEST(Report, ShowsRoundedNumbersWithOneDecimal) {
  for (const auto& [value, text] :
       {std::pair{0.0, "0.0"}, std::pair{0.04, "0.0"}, std::pair{0.25, "0.2"}, std::pair{0.35, "0.3"},
        std::pair{12.0, "12.0"}, std::pair{99.96, "100.0"}, std::pair{1234567.89, "1234567.9"},
        std::pair{12345678901234.56, "12345678901234.6"}}) {
    const Report rounded = RoundToTenths(value);
    EXPECT_EQ(JsonText(rounded), text);
    Report report = Report::object();
    report["x"] = rounded;
    EXPECT_EQ(AlignedText(report), std::string("x  ") + text + "\n");
  }
}

TEST(Report, AnEmptyReportIsEmptyInBothForms) {
  EXPECT_EQ(AlignedText(Report::object()), "");
  EXPECT_EQ(JsonText(Report::object()), "{}");
}

}  // namespace
}  // namespace fenlux::refhost
