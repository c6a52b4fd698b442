// Reading of rules, their order, and their decisions.
#include "refhost/services/events/judge.h"

#include <gtest/gtest.h>

#include "host/buf.h"
#include "refhost/base/config/config_reader.h"
#include "refhost/services/events/event_record.h"
#include "refhost/services/processes/process_queries.h"

namespace fenlux::refhost {
namespace {

struct Read {
  explicit Read(std::string_view text) {
    const ConfigDocument document(text, "j.toml", errors);
    rules = ReadRules(document.Root());
    document.Root().Finish();
  }
  ConfigErrors errors;
  Rules rules;
};

std::shared_ptr<EventRecord> Event(std::uint32_t type, std::uint32_t category, const std::wstring& path,
                                   const std::wstring& image = {}) {
  auto record = std::make_shared<EventRecord>();
  record->SetEventType(type);
  record->SetCategory(category);
  record->SetPath(path);
  record->SetWideInfo(image);
  return record;
}

TEST(Judge, TheFirstMatchingRuleDecides) {
  const Read read(
      "[[rules]]\npath = '/a/*'\nprocess = 'cat'\ndecision = 3\n"
      "[[rules]]\npath = '/a/*'\ndecision = 4\n"
      "[[rules]]\ndecision = 6\n");
  ASSERT_EQ(read.errors.Text(), "");
  Judge judge(read.rules);
  EXPECT_EQ(judge.Evaluate(Event(0x4005, 1, L"/a/x", L"/bin/cat")), 3U);
  EXPECT_EQ(judge.Evaluate(Event(0x4005, 1, L"/a/x", L"/bin/head")), 4U);
  EXPECT_EQ(judge.Evaluate(Event(0x4005, 1, L"/a/x")), 4U);
  EXPECT_EQ(judge.Evaluate(Event(0x4005, 1, L"/b", L"/bin/cat")), 6U);
  const auto decisions = judge.Decisions();
  EXPECT_EQ(decisions[3], 1U);
  EXPECT_EQ(decisions[4], 2U);
  EXPECT_EQ(decisions[6], 1U);
}

TEST(Judge, AnUnknownProgramIsRefusedOnlyWhereAProgramPatternWouldDecide) {
  const Read read(
      "[[rules]]\npath = '/a/*'\ndecision = 6\n"
      "[[rules]]\npath = '/b/*'\nprocess = 'cat'\ndecision = 2\n"
      "[[rules]]\npath = '/b/*'\ndecision = 1\n");
  ASSERT_EQ(read.errors.Text(), "");
  Judge judge(read.rules, {.unknownProgram = Decision::kVerdict4, .refusing = {}, .observer = {}});
  EXPECT_EQ(judge.Evaluate(Event(0x4005, 1, L"/a/x")), 6U);
  EXPECT_EQ(judge.Evaluate(Event(0x4005, 1, L"/c/x")), 2U);
  EXPECT_EQ(judge.UnknownPrograms(), 0U);
  EXPECT_EQ(judge.Evaluate(Event(0x4005, 1, L"/b/x")), 3U);
  EXPECT_EQ(judge.UnknownPrograms(), 1U);
  EXPECT_EQ(judge.Evaluate(Event(0x4005, 1, L"/b/x", L"/bin/cat")), 2U);
  EXPECT_EQ(judge.Evaluate(Event(0x4005, 1, L"/b/x", L"/bin/head")), 1U);
  EXPECT_EQ(judge.UnknownPrograms(), 1U);
}

TEST(Judge, AProgramThatCouldNotBeReadLeavesAnEventUndecidedOnlyWhereAProgramPatternWouldDecide) {
  const Read read(
      "[[rules]]\npath = '/a/*'\ndecision = 3\n"
      "[[rules]]\npath = '/b/*'\nprocess = '**'\ndecision = 3\n");
  ASSERT_EQ(read.errors.Text(), "");
  Judge judge(read.rules, {.unknownProgram = Decision::kVerdict4, .refusing = {}, .observer = {}});
  const std::wstring notRead(kImageNotRead);
  EXPECT_EQ(judge.Evaluate(Event(0x4005, 1, L"/a/x", notRead)), 3U);
  EXPECT_EQ(judge.Evaluate(Event(0x4005, 1, L"/b/x", notRead)), static_cast<std::uint32_t>(Decision::kUndecided));
  EXPECT_EQ(judge.UnknownPrograms(), 0U);
}

TEST(Judge, NotifiesItsObserverOfEveryJudgement) {
  const Read read("[[rules]]\nname = 'first'\npath = '/a/*'\ndecision = 3\n");
  std::vector<std::string> seen;
  const auto observer = [&](Decision decision, const Rule* rule, std::chrono::nanoseconds duration) {
    EXPECT_GE(duration.count(), 0);
    seen.push_back(std::to_string(static_cast<int>(decision)) + (rule == nullptr ? "" : rule->name));
  };
  Judge judge(read.rules, {.unknownProgram = std::nullopt, .refusing = {}, .observer = observer});
  judge.Evaluate(Event(0x4005, 1, L"/a/x"));
  judge.Evaluate(Event(0x4005, 1, L"/b"));
  EXPECT_EQ(seen, (std::vector<std::string>{"3first", "2"}));
}

TEST(Judge, ReturnsTheDefaultIfNoRuleMatches) {
  EXPECT_EQ(Judge(Read("").rules).Evaluate(Event(1, 1, L"")), 2U);
  EXPECT_EQ(
      Judge(Read("default_decision = 7\n[[rules]]\ntypes = [2]\ndecision = 1\n").rules).Evaluate(Event(1, 1, L"")), 7U);
}

TEST(Judge, RulesSelectEventsByTypeCodeAndName) {
  Judge judge(Read("[[rules]]\ntypes = [0x4005]\ncodes = [8195, 8196]\nevents = ['open']\ndecision = 3\n").rules);
  EXPECT_EQ(judge.Evaluate(Event(0x4005, 1, L"")), 3U);
  EXPECT_EQ(judge.Evaluate(Event(0x4005, 2, L"")), 3U);
  EXPECT_EQ(judge.Evaluate(Event(0x4007, 2, L"")), 3U);
  EXPECT_EQ(judge.Evaluate(Event(0x4007, 1, L"")), 2U);
  EXPECT_EQ(judge.Evaluate(Event(0x4009, 2, L"")), 3U);
  EXPECT_EQ(judge.Evaluate(Event(0x4004, 2, L"")), 3U);
  EXPECT_EQ(judge.Evaluate(Event(0x400A, 2, L"")), 2U);
}

TEST(Judge, PathPatternsMatchTheSecondPathToo) {
  Judge judge(Read("[[rules]]\npath = '*.secret'\ndecision = 3\n").rules);
  const auto moved = Event(0x400A, 1, L"/a/plain");
  EXPECT_EQ(judge.Evaluate(moved), 2U);
  moved->SetSecondPath(L"/a/x.secret");
  EXPECT_EQ(judge.Evaluate(moved), 3U);
}

TEST(Judge, TheContextOfDecisionFiveIsUtf16) {
  Judge judge(Read("[[rules]]\ndecision = 5\ncontext = 'aü'\n").rules);
  const auto event = Event(1, 1, L"");
  EXPECT_EQ(judge.Evaluate(event), 5U);
  const std::shared_ptr<CBuf> context = event->GetContextData();
  ASSERT_NE(context, nullptr);
  const std::vector<std::uint8_t> bytes(context->GetData(), context->GetData() + context->GetSize());
  EXPECT_EQ(bytes, (std::vector<std::uint8_t>{'a', 0, 0xFC, 0}));
}

TEST(Judge, NewRulesApplyAtOnce) {
  Judge judge(Read("default_decision = 2\n").rules);
  EXPECT_EQ(judge.Evaluate(Event(1, 1, L"")), 2U);
  judge.Replace(Read("default_decision = 4\n").rules);
  EXPECT_EQ(judge.Evaluate(Event(1, 1, L"")), 4U);
}

TEST(Judge, RulesAreLabelledByNameOrNumberAndPosition) {
  const Read read("[[rules]]\nname = 'no secrets'\ndecision = 3\n\n[[rules]]\ndecision = 4\n");
  ASSERT_EQ(read.rules.ordered.size(), 2U);
  EXPECT_EQ(read.rules.ordered[0].Label(), "\"no secrets\" (j.toml:1)");
  EXPECT_EQ(read.rules.ordered[1].Label(), "2 (j.toml:5)");
}

TEST(Judge, CountsTheHitsOfEachRuleAndOfTheDefault) {
  const Read read("[[rules]]\npath = 'a'\ndecision = 3\n[[rules]]\npath = 'b'\ndecision = 4\n");
  Judge judge(read.rules);
  const auto before = std::chrono::system_clock::now();
  judge.Evaluate(Event(1, 1, L"b"));
  judge.Evaluate(Event(1, 1, L"b"));
  judge.Evaluate(Event(1, 1, L"c"));
  const auto current = judge.InForce();
  EXPECT_EQ(current->HitsOf(&current->rules.ordered[0]).Hits(), 0U);
  EXPECT_EQ(current->HitsOf(&current->rules.ordered[0]).LastHit(), std::nullopt);
  EXPECT_EQ(current->HitsOf(&current->rules.ordered[1]).Hits(), 2U);
  EXPECT_GE(current->HitsOf(&current->rules.ordered[1]).LastHit(), before);
  EXPECT_EQ(current->HitsOf(nullptr).Hits(), 1U);
}

TEST(Judge, UnchangedRulesKeepTheirHitsAndChangedOnesStartAtZero) {
  constexpr std::string_view kSame = "[[rules]]\nname = 'a'\npath = 'a'\ndecision = 5\ncontext = 'x'\n";
  Judge judge(Read(kSame).rules);
  judge.Evaluate(Event(1, 1, L"a"));
  const auto since = judge.InForce()->since;
  judge.Replace(Read(kSame).rules);
  EXPECT_EQ(judge.InForce()->HitsOf(&judge.InForce()->rules.ordered[0]).Hits(), 1U);
  EXPECT_EQ(judge.InForce()->since, since);
  judge.Replace(Read("[[rules]]\nname = 'a'\npath = 'a'\ndecision = 5\ncontext = 'y'\n").rules);
  EXPECT_EQ(judge.InForce()->HitsOf(&judge.InForce()->rules.ordered[0]).Hits(), 0U);
}

TEST(Judge, ReportsEveryErrorOfItsRules) {
  EXPECT_EQ(
      Read("default_decision = 5\n"
           "[[rules]]\nevents = ['opne']\ncodes = [4115]\npath = ''\n"
           "[[rules]]\ndecision = 5\n"
           "[[rules]]\ndecision = 8\ncontext = 'x'\nproces = 'y'\n")
          .errors.Text(),
      "j.toml:1:20: default_decision: cannot be 5: only rules have a context\n"
      "j.toml:2:1: rules[0].decision: is missing\n"
      "j.toml:3:10: rules[0].events: \"opne\" is not one of access, endpoint, open, remote, unanswered; did you mean "
      "\"open\"?\n"
      "j.toml:4:9: rules[0].codes: notification code 4115 is never judged\n"
      "j.toml:5:8: rules[0].path: must not be empty\n"
      "j.toml:7:12: rules[1].decision: 5 requires a context; write context = \"\" to leave it out on purpose\n"
      "j.toml:9:12: rules[2].decision: must be from 1 to 7, not 8\n"
      "j.toml:10:11: rules[2].context: requires decision 5\n"
      "j.toml:11:1: rules[2].proces: is not a known key; did you mean \"process\"?\n");
}

TEST(EventTypes, EveryJudgedCodeHasItsKinds) {
  EXPECT_EQ(EventKindsOfCode(4098), (std::vector<EventKind>{{0x4005, 1}}));
  EXPECT_EQ(EventKindsOfCode(4109), (std::vector<EventKind>{{0x4008, 2}, {0x4009, 2}, {0x4011, 2}}));
  EXPECT_EQ(EventKindsOfCode(8194), (std::vector<EventKind>{{0x4004, 2}}));
  for (const std::uint32_t unknown : {4096U, 4115U, 4119U, 8192U, 8207U}) {
    EXPECT_TRUE(EventKindsOfCode(unknown).empty()) << unknown;
  }
  for (std::uint32_t code = 4097; code <= 4118; ++code) {
    if (code != 4115) {
      EXPECT_FALSE(EventKindsOfCode(code).empty()) << code;
    }
  }
  for (std::uint32_t code = 8193; code <= 8206; ++code) EXPECT_FALSE(EventKindsOfCode(code).empty()) << code;
}

}  // namespace
}  // namespace fenlux::refhost
