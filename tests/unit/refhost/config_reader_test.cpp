// Every getter, every kind of error with its place, and that all errors of a file are reported.
#include "refhost/base/config/config_reader.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>

#include "refhost/base/platform/own_process.h"
#include "tests/support/temporary_directory.h"
#include "tests/unit/refhost/set_environment.h"

namespace fenlux::refhost {
namespace {

using fenlux::testing::TemporaryDirectory;
using ::testing::EndsWith;
using ::testing::StartsWith;

struct Parsed {
  explicit Parsed(std::string_view text, const std::string& file = "dir/a.toml") : document(text, file, errors) {}

  ConfigErrors errors;
  ConfigDocument document;
  ConfigTable root = document.Root();
};

TEST(ConfigReader, ReturnsTheValuesOfTheFile) {
  Parsed parsed(
      "flag = true\nnumber = -3\nreal = 2.5\ntext = 'a'\ntexts = ['x', 'y']\nnumbers = [1, 2]\n"
      "[inner]\ndeep = 7\n[[many]]\nn = 1\n[[many]]\nn = 2\n");
  EXPECT_TRUE(parsed.root.Boolean("flag", false));
  EXPECT_EQ(parsed.root.Integer("number", 0), -3);
  EXPECT_DOUBLE_EQ(parsed.root.Number("real", 0), 2.5);
  EXPECT_DOUBLE_EQ(parsed.root.Number("number", 0), -3);
  EXPECT_EQ(parsed.root.Text("text", "b"), "a");
  EXPECT_EQ(parsed.root.Texts("texts"), (std::vector<std::string>{"x", "y"}));
  EXPECT_EQ(parsed.root.Integers("numbers"), (std::vector<std::int64_t>{1, 2}));
  EXPECT_EQ(parsed.root.Table("inner").Unsigned("deep", 0), 7U);
  const std::vector<ConfigTable> many = parsed.root.Tables("many");
  ASSERT_EQ(many.size(), 2U);
  EXPECT_EQ(many[0].Integer("n", 0), 1);
  EXPECT_EQ(many[1].Integer("n", 0), 2);
  parsed.root.Finish();
  EXPECT_EQ(parsed.errors.Text(), "");
}

TEST(ConfigReader, ReturnsDefaultsForAbsentKeysWithoutAnError) {
  Parsed parsed("");
  EXPECT_TRUE(parsed.root.Boolean("flag", true));
  EXPECT_EQ(parsed.root.Integer("number", 9), 9);
  EXPECT_EQ(parsed.root.Unsigned("unsigned", 8), 8U);
  EXPECT_DOUBLE_EQ(parsed.root.Number("real", 1.5), 1.5);
  EXPECT_EQ(parsed.root.Text("text", "default"), "default");
  EXPECT_TRUE(parsed.root.Texts("texts").empty());
  EXPECT_TRUE(parsed.root.Path("path").empty());
  EXPECT_FALSE(parsed.root.Table("inner").Present());
  EXPECT_EQ(parsed.root.Table("inner").Integer("deep", 4), 4);
  EXPECT_TRUE(parsed.root.Tables("many").empty());
  parsed.root.Finish();
  EXPECT_TRUE(parsed.errors.Empty());
}

TEST(ConfigReader, ReportsEveryErrorWithItsPlaceInFileOrder) {
  Parsed parsed(
      "number = 'x'\n"
      "range = 12\n"
      "[inner]\n"
      "  flag = 1\n"
      "unknown = 1\n"
      "[[many]]\n"
      "choice = 'blue'\n");
  parsed.root.Tables("many").at(0).Choice("choice", 0, ConfigChoices<int>{{"red", 1}, {"green", 2}});
  parsed.root.Table("inner").Boolean("flag", true);
  parsed.root.Integer("range", 3, 1, 10);
  parsed.root.Integer("number", 0);
  parsed.root.RequiredText("name");
  parsed.root.Finish();
  EXPECT_EQ(parsed.errors.Text(),
            "dir/a.toml:1:1: name: is missing\n"
            "dir/a.toml:1:10: number: must be an integer\n"
            "dir/a.toml:2:9: range: must be from 1 to 10, not 12\n"
            "dir/a.toml:4:10: inner.flag: must be true or false\n"
            "dir/a.toml:5:1: inner.unknown: is not a known key\n"
            "dir/a.toml:7:10: many[0].choice: must be one of red, green, not \"blue\"\n");
}

TEST(ConfigReader, ReturnsTheDefaultForABadValue) {
  Parsed parsed("a = 'x'\nb = 99\nc = 1\nd = -1\n");
  EXPECT_EQ(parsed.root.Integer("a", 5), 5);
  EXPECT_EQ(parsed.root.Integer("b", 5, 1, 10), 5);
  EXPECT_EQ(parsed.root.Text("c", "s"), "s");
  EXPECT_EQ(parsed.root.Unsigned("d", 6), 6U);
  EXPECT_EQ(parsed.errors.Sorted().size(), 4U);
}

TEST(ConfigReader, ReportsTheViolatedBound) {
  Parsed parsed("a = 0\nb = 1.5\nc = nan\n");
  parsed.root.Integer("a", 5, 1);
  parsed.root.Number("b", 0, -1, 1);
  parsed.root.Number("c", 0, 0);
  EXPECT_EQ(parsed.errors.Text(),
            "dir/a.toml:1:5: a: must be at least 1, not 0\n"
            "dir/a.toml:2:5: b: must be from -1 to 1, not 1.5\n"
            "dir/a.toml:3:5: c: must be at least 0, not nan\n");
}

TEST(ConfigReader, ReportsBadElementsByIndexAndKeepsTheOthers) {
  Parsed parsed("texts = ['x', 3, 'z']\nnumbers = [1, 'two', 3]\nlist = 1\n");
  EXPECT_EQ(parsed.root.Texts("texts"), (std::vector<std::string>{"x", "z"}));
  EXPECT_EQ(parsed.root.Integers("numbers"), (std::vector<std::int64_t>{1, 3}));
  EXPECT_TRUE(parsed.root.Texts("list").empty());
  EXPECT_EQ(parsed.errors.Text(),
            "dir/a.toml:1:15: texts[1]: must be a string\n"
            "dir/a.toml:2:15: numbers[1]: must be an integer\n"
            "dir/a.toml:3:8: list: must be an array of strings\n");
}

TEST(ConfigReader, ReportsOnlyTheSyntaxErrorOfAFile) {
  Parsed parsed("a = 1\nb = = 2\n");
  EXPECT_FALSE(parsed.document.Parsed());
  parsed.root.RequiredText("name");
  parsed.root.Finish();
  const std::vector<ConfigError> errors = parsed.errors.Sorted();
  ASSERT_EQ(errors.size(), 1U);
  EXPECT_EQ(errors[0].line, 2U);
  EXPECT_EQ(errors[0].key, "(syntax)");
  EXPECT_FALSE(errors[0].reason.empty());
}

TEST(ConfigReader, ReportsCharactersThatAreAllowedOnlyInStringsAndComments) {
  const std::string reason =
      ": (syntax): only printable ASCII characters are allowed outside strings and comments, and after a backslash\n";
  for (const auto& [text, place] :
       std::vector<std::pair<std::string, std::string>>{{"\xC3\xA9 = 1\n", "1:1"},
                                                        {"a = 1\nport = 1 \xCB\xBF\n", "2:10"},
                                                        {"a = '\xC3\xA9' \xC3\xA9\n", "1:9"},
                                                        {"\xEF\xBB\xBF"
                                                         "a = \"\\\"\"\xC3\xA9\n",
                                                         "1:9"},
                                                        {"a = \"\"\"x\n\"\"\"\"\"\xE2\x82\xAC", "2:6"},
                                                        {"a = '' \xC2\xA0", "1:8"},
                                                        {"a = 5::x\"\"\"\xEF\xB8\xBF\"\"\"\n", "1:12"},
                                                        {"a = 5.'\xC3\xA9'\n", "1:8"},
                                                        {"a = \"\"\"x\\\xEF\xBB\xBE\"\"\"\n", "1:10"},
                                                        {"a = \"\\\xC3\xA9\"\n", "1:7"},
                                                        {"a = \"\"\"x\\ \n\n \xC3\xA9\"\"\"\n", "3:2"},
                                                        {"[\x01]\n", "1:2"},
                                                        {"a = 1 # \xC3\xA9\n\x7F", "2:1"},
                                                        {"\xFF", "1:1"}}) {
    Parsed parsed(text);
    EXPECT_FALSE(parsed.document.Parsed());
    EXPECT_EQ(parsed.errors.Text(), "dir/a.toml:" + place + reason) << text;
  }
}

TEST(ConfigReader, AcceptsAnyLettersInStringsAndComments) {
  Parsed parsed(
      "\xEF\xBB\xBF# \xC3\xA9 '\n"
      "a = \"\xC3\xA9\\\"\xC3\xA9\"\n"
      "'\xC3\xA9' = '\xE2\x82\xAC\\'\r\n"
      "b = \"\"\"\"\xC3\xA9\"\"\xC3\xA9\n\\\"\"\"\xC3\xA9\"\"\"\n"
      "c = \'\'\'\xC3\xA9\'\n\xC3\xA9\'\'\'\'\n"
      "d = \"\"\t# \xC3\xA9\n"
      "e = \"\"\"\\\n  x\xC3\xA9 \\\n\"\"\"\n");
  EXPECT_EQ(parsed.root.Text("a", ""), "\xC3\xA9\"\xC3\xA9");
  EXPECT_EQ(parsed.root.Text("\xC3\xA9", ""), "\xE2\x82\xAC\\");
  EXPECT_EQ(parsed.root.Text("b", ""), "\"\xC3\xA9\"\"\xC3\xA9\n\"\"\"\xC3\xA9");
  EXPECT_EQ(parsed.root.Text("c", ""), "\xC3\xA9\'\n\xC3\xA9\'");
  EXPECT_EQ(parsed.root.Text("d", "none"), "");
  EXPECT_EQ(parsed.root.Text("e", ""), "x\xC3\xA9 ");
  EXPECT_EQ(parsed.errors.Text(), "");
}

TEST(ConfigReader, ReportsAFileThatCannotBeRead) {
  ConfigErrors errors;
  const ConfigDocument document(boost::filesystem::path("no/such/file.toml"), errors);
  document.Root().RequiredText("name");
  EXPECT_FALSE(document.Parsed());
  EXPECT_THAT(errors.Text(), StartsWith("no/such/file.toml:1:1: (file): cannot be read: "));  // the system's reason
  EXPECT_THAT(errors.Text(), EndsWith("; check the path\n"));
}

TEST(ConfigReader, ReportsADirectoryAsUnreadable) {
  const TemporaryDirectory directory;
  ConfigErrors errors;
  const ConfigDocument document(directory.Path(), errors);
  EXPECT_FALSE(document.Parsed());
  EXPECT_EQ(errors.Text(),
            directory.Path().string() + ":1:1: (file): cannot be read: it is a directory; name a file\n");
}

TEST(ConfigReader, SharesTheStateOfATableThatIsReadTwice) {
  Parsed parsed("[t]\na = 1\nb = 2\nc = 3\n");
  parsed.root.Table("t").Integer("a", 0);
  parsed.root.Table("t").Integer("b", 0);
  parsed.root.Finish();
  EXPECT_EQ(parsed.errors.Text(), "dir/a.toml:4:1: t.c: is not a known key\n");
}

TEST(ConfigReader, AddsThePositionToReportsOfTheCaller) {
  Parsed parsed("[t]\na = 1\n");
  parsed.root.Table("t").Report("a", "is odd");
  parsed.root.Table("t").Report("", "is not enough");
  parsed.root.Report("gone", "should be there");
  EXPECT_EQ(parsed.errors.Text(),
            "dir/a.toml:1:1: t: is not enough\n"
            "dir/a.toml:1:1: gone: should be there\n"
            "dir/a.toml:2:5: t.a: is odd\n");
}

TEST(ConfigReader, ResolvesRelativePathsAgainstTheDirectoryOfTheFile) {
  const TemporaryDirectory directory;
  ConfigErrors errors;
  const ConfigDocument document("a = 'x/../y'\nb = '/abs/./z'\nc = '.'\nd = ''\n", directory.Path() / "f.toml", errors);
  const ConfigTable root = document.Root();
  EXPECT_EQ(root.Path("a"), directory.Path() / "y");
  EXPECT_EQ(root.Path("b"), directory.Path().root_name() / "/abs/./z");
  EXPECT_EQ(root.Path("c"), directory.Path());
  EXPECT_TRUE(root.Path("d").empty());
  EXPECT_EQ(errors.Text(), (directory.Path() / "f.toml").string() + ":4:5: d: must not be empty\n");
}

TEST(ConfigReader, ReplacesEnvironmentVariablesAndReportsUnsetOnes) {
  testing::SetEnvironmentText("FENLUX_TEST_DIRECTORY", "/some/where");
  testing::UnsetEnvironmentText("FENLUX_TEST_UNSET");
  Parsed parsed(
      "a = '${FENLUX_TEST_DIRECTORY}/x'\nb = '${FENLUX_TEST_UNSET}/x'\nc = '/${open'\n"
      "paths = ['/p', '${FENLUX_TEST_UNSET}']\nt = 'see ${FENLUX_TEST_DIRECTORY}!'\n");
  EXPECT_EQ(parsed.root.Path("a"), testing::Rooted("/some/where/x"));
  EXPECT_TRUE(parsed.root.Path("b").empty());
  EXPECT_TRUE(parsed.root.Path("c").empty());
  EXPECT_EQ(parsed.root.Paths("paths"), std::vector<boost::filesystem::path>{testing::Rooted("/p")});
  EXPECT_EQ(parsed.root.ExpandedText("t", ""), "see /some/where!");
  EXPECT_EQ(parsed.errors.Text(),
            "dir/a.toml:2:5: b: refers to the environment variable FENLUX_TEST_UNSET, which is not set\n"
            "dir/a.toml:3:5: c: has \"${\" without \"}\"\n"
            "dir/a.toml:4:16: paths[1]: refers to the environment variable FENLUX_TEST_UNSET, which is not set\n");
}

TEST(ConfigReader, ReplacesThePathOfTheRunningProgram) {
  Parsed parsed("a = '${FENLUX_HOST_PROGRAM}'\n");
  EXPECT_EQ(parsed.root.Path("a"), OwnProgramPath());
  EXPECT_EQ(parsed.errors.Text(), "");
}

TEST(ConfigReader, ReportsUnknownKeysOnce) {
  Parsed parsed("a = 1\n");
  parsed.root.Finish();
  parsed.root.Finish();
  EXPECT_EQ(parsed.errors.Sorted().size(), 1U);
}

}  // namespace
}  // namespace fenlux::refhost
