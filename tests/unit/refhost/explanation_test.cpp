// Which rule would decide about an event, and why the others do not match.
#include "refhost/services/events/explanation.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <stdexcept>

#include "refhost/app/decisions/explain_report.h"
#include "refhost/base/config/config_reader.h"
#include "refhost/base/text/utf_text.h"

namespace fenlux::refhost {
namespace {

constexpr std::string_view kRules =
    "[[rules]]\nevents = ['open']\npath = '*.txt'\ndecision = 1\n"
    "[[rules]]\nname = 'cat'\npath = '*.secret'\nprocess = 'cat'\ndecision = 3\n"
    "[[rules]]\npath = '*.secret'\ndecision = 4\n"
    "[[rules]]\npath = '/never/*'\ndecision = 1\n";

Rules RulesOf(std::string_view text) {
  ConfigErrors errors;
  const ConfigDocument document(text, "j.toml", errors);
  Rules rules = ReadRules(document.Root());
  EXPECT_EQ(errors.Text(), "");
  return rules;
}

DecisionFlags Refusing() {
  DecisionFlags refusing{};
  refusing[3] = refusing[4] = true;
  return refusing;
}

TEST(Explanation, SaysWhyEachEarlierRuleDoesNotMatch) {
  const Rules rules = RulesOf(kRules);
  const Explanation explanation = Explain(rules, {4097, "/a/x.secret", "/usr/bin/head"});
  EXPECT_EQ(explanation.decider, &rules.ordered[2]);
  EXPECT_EQ(explanation.decision, Decision::kVerdict5);
  ASSERT_EQ(explanation.rules.size(), 3U);
  EXPECT_EQ(explanation.rules[0].reasons,
            (std::vector<std::string>{"the event (code 4097, type 0x4002, category 1) is none of its events",
                                      "its path *.txt does not match /a/x.secret"}));
  EXPECT_EQ(explanation.rules[1].reasons, (std::vector<std::string>{"its process cat does not match /usr/bin/head"}));
  EXPECT_TRUE(explanation.rules[2].reasons.empty());
}

TEST(Explanation, RulesThatNameProgramsAreMarkedIfNoProgramIsGiven) {
  const Rules rules = RulesOf(kRules);
  const Explanation explanation = Explain(rules, {4097, "/a/x.secret", std::nullopt});
  EXPECT_EQ(explanation.decider, &rules.ordered[2]);
  EXPECT_TRUE(explanation.rules[1].dependsOnProgram);
  EXPECT_FALSE(Explain(rules, {4097, "/a/x", std::nullopt}).rules[1].dependsOnProgram);
}

TEST(Explanation, TheDefaultDecidesIfNoRuleMatches) {
  const Rules rules = RulesOf(kRules);
  const Explanation explanation = Explain(rules, {4097, "/a/plain", "/usr/bin/cat"});
  EXPECT_EQ(explanation.decider, nullptr);
  EXPECT_EQ(explanation.decision, Decision::kPass);
  EXPECT_EQ(explanation.rules.size(), 4U);
}

// The judge and the explanation must not differ.
TEST(Explanation, AgreesWithTheJudge) {
  const Rules rules = RulesOf(kRules);
  Judge judge(rules);
  for (const char* path : {"/a/x.txt", "/a/x.secret", "/never/x", "/a/plain"}) {
    for (const char* program : {"/usr/bin/cat", "/usr/bin/head"}) {
      for (const std::uint32_t code : {4097U, 4098U, 8194U}) {
        const auto record = std::make_shared<EventRecord>();
        const EventKind kind = PlainKindOfCode(code).value();
        record->SetEventType(kind.type);
        record->SetCategory(kind.category);
        record->SetPath(WideFromNarrow(path));
        record->SetWideInfo(WideFromNarrow(program));
        EXPECT_EQ(judge.Evaluate(record), static_cast<std::uint32_t>(Explain(rules, {code, path, program}).decision))
            << path << ' ' << program << ' ' << code;
      }
    }
  }
}

TEST(ExplainReport, ShowsTheResultTheDeciderAndEveryReason) {
  const Report report = ExplainReport(RulesOf(kRules), Refusing(), {"/a/x.secret", "/usr/bin/cat", {}, {}, {}});
  EXPECT_EQ(report["result"], "refused");
  EXPECT_EQ(report["decision"], 3U);
  EXPECT_EQ(report["code"], 4097U);
  EXPECT_EQ(ExplainText(report),
            "refused: /a/x.secret (code 4097), by /usr/bin/cat\n"
            "decided by rule \"cat\" (j.toml:5), decision 3\n"
            "  rule 1 (j.toml:1) does not match: the event (code 4097, type 0x4002, category 1) is none of its events; "
            "its path *.txt does not match /a/x.secret\n"
            "  rule \"cat\" (j.toml:5) matches\n");
}

TEST(ExplainReport, EventsHaveTheSameNamesAsInRules) {
  const Rules rules = RulesOf(kRules);
  EXPECT_EQ(ExplainReport(rules, Refusing(), {"/a/x.txt", {}, {}, {}, "open"})["code"], 8194U);
  EXPECT_EQ(ExplainReport(rules, Refusing(), {"/a/x.txt", {}, {}, {}, "open"})["decision"], 1U);
  EXPECT_EQ(ExplainReport(rules, Refusing(), {"/a/x.txt", {}, {}, {}, "access"})["code"], 4097U);
  EXPECT_EQ(ExplainReport(rules, Refusing(), {"/a/x.txt", {}, {}, "8194", {}})["code"], 8194U);
}

TEST(ExplainReport, EscapesControlCharacters) {
  const Report report = ExplainReport(RulesOf(""), Refusing(), {"/a/\x1b[31m\n", {}, {}, {}, {}});
  EXPECT_EQ(ExplainText(report),
            "allowed: /a/\\x1b[31m\\n (code 4097), by a program that no rule names\n"
            "decided by the default, decision 2\n");
}

TEST(ExplainReport, WithoutEnforcementTheResultIsWouldRefuse) {
  Rules rules = RulesOf(kRules);
  rules.enforced = false;
  EXPECT_EQ(ExplainReport(rules, Refusing(), {"/a/x.secret", {}, {}, {}, {}})["result"], "would refuse");
}

TEST(ExplainReport, InvalidQuestionsAreErrors) {
  const auto error = [](const ExplainQuestion& question) -> std::string {
    try {
      ExplainReport(RulesOf(""), Refusing(), question);
    } catch (const ExplainError& thrown) {
      return thrown.what();
    }
    return {};
  };
  EXPECT_EQ(error({"/a", {}, {}, "4115", {}}), "notification code 4115 is never judged");
  EXPECT_EQ(error({"/a", {}, {}, "x", {}}), "the code must be a number, not \"x\"");
  EXPECT_EQ(error({"/a", {}, {}, "4097", "open"}), "give a code or an event, not both");
  EXPECT_EQ(error({"/a", {}, {}, {}, "opne"}),
            "event \"opne\" is not one of access, endpoint, open, remote, unanswered; did you mean \"open\"?");
  EXPECT_EQ(error({"/a", "/bin/cat", "1", {}, {}}), "give a process or a pid, not both");
  EXPECT_EQ(error({"/a", {}, "4294967295", {}, {}}), "there is no process 4294967295");
}

}  // namespace
}  // namespace fenlux::refhost
