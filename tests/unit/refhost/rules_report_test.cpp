// The rules in force, as text and as JSON.
#include "refhost/app/decisions/rules_report.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <nlohmann/json.hpp>

#include "refhost/base/config/config_reader.h"

namespace fenlux::refhost {
namespace {

RulesInForce Current() {
  ConfigErrors errors;
  const ConfigDocument document(
      "[[rules]]\nname = \"a\\nb\"\npath = '*.secret'\nprocess = 'cat'\nevents = ['open']\ndecision = 3\n"
      "[[rules]]\ndecision = 4\n",
      "/etc/host.toml", errors);
  RulesInForce current(ReadRules(document.Root()));
  EXPECT_EQ(errors.Text(), "");
  current.HitsOf(&current.rules.ordered[1]).Count(std::chrono::system_clock::now());
  return current;
}

TEST(RulesReport, ShowsTheRulesInOrderAndTheDefaultAtTheEnd) {
  const Report report = RulesReport(Current());
  EXPECT_EQ(report["file"], "/etc/host.toml");
  ASSERT_EQ(report["rules"].size(), 2U);
  EXPECT_EQ(report["rules"][0]["line"], 1U);
  EXPECT_EQ(report["rules"][0]["path"], "*.secret");
  EXPECT_EQ(report["rules"][0]["process"], "cat");
  EXPECT_EQ(report["rules"][0]["hits"], 0U);
  EXPECT_EQ(report["rules"][0]["last_hit"], "");
  EXPECT_EQ(report["rules"][1]["line"], 7U);
  EXPECT_EQ(report["rules"][1]["hits"], 1U);
  EXPECT_NE(report["rules"][1]["last_hit"], "");
  EXPECT_EQ(report["default"]["decision"], 2U);
  EXPECT_EQ(report["default"]["hits"], 0U);
}

TEST(RulesReport, TheTableHasALineForEachRuleAndEscapesControlCharacters) {
  const std::string text = RulesText(RulesReport(Current()));
  EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 5) << text;
  EXPECT_NE(text.find("      1      1         3           0  never                          a\\nb\n"),
            std::string::npos)
      << text;
  EXPECT_NE(text.find("default                2           0  never\n"), std::string::npos) << text;
}

TEST(RulesReport, TheSummaryShowsHitsByLabel) {
  const Report report = RuleHitsReport(Current());
  EXPECT_EQ(JsonText(report), R"x({"1 \"a\nb\" (host.toml:1)":0,"2 (host.toml:7)":1,"default":0})x");
  EXPECT_NE(AlignedText(report).find("1 \"a\\nb\" (host.toml:1)"), std::string::npos) << AlignedText(report);
}

}  // namespace
}  // namespace fenlux::refhost
