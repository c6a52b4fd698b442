// Records of judged events reach the observers that request them, with the judgement and the outcome.
#include "refhost/services/events/decision_sink.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "refhost/base/config/config_reader.h"
#include "refhost/services/events/event_record.h"
#include "refhost/services/events/judge.h"

namespace fenlux::refhost {
namespace {

class Records final : public DecisionObserver {
 public:
  void Observe(const DecisionRecord& record) noexcept override { seen.push_back(record); }
  std::vector<DecisionRecord> seen;
};

Rules RulesOf(std::string_view text) {
  ConfigErrors errors;
  const ConfigDocument document(text, "j.toml", errors);
  return ReadRules(document.Root());
}

class DecisionSinkTest : public ::testing::Test {
 protected:
  DecisionSinkTest() : judge(RulesOf("[[rules]]\nname = 'secret'\npath = '*.secret'\ndecision = 3\n"), Settings()) {}

  static JudgeSettings Settings() {
    JudgeSettings settings;
    settings.refusing[3] = true;
    return settings;
  }

  // One notification, as a delivery thread handles it.
  void Handle(const std::wstring& path, const DecisionEnd& end) {
    DecisionScope scope(&sink, 4097, "open");
    const auto record = std::make_shared<EventRecord>();
    record->SetPath(path);
    record->ProcessPart()->SetProcessId(4711);
    judge.Evaluate(record);
    scope.End(end);
  }
  void HandleBoth() {
    Handle(L"/a/plain", {.verdict = 3, .refused = false, .wouldRefuse = false, .cause = {}, .latency = {}});
    Handle(
        L"/a/x.secret",
        {.verdict = 4, .refused = true, .wouldRefuse = false, .cause = {}, .latency = std::chrono::microseconds(52)});
  }

  Judge judge;
  DecisionSink sink;
  const std::shared_ptr<Records> all = std::make_shared<Records>();
  const std::shared_ptr<Records> refusals = std::make_shared<Records>();
};

TEST_F(DecisionSinkTest, EveryObserverReceivesTheRecordsItRequests) {
  HandleBoth();
  EXPECT_EQ(sink.Interest(), DecisionInterest::kNone);
  sink.Attach(refusals, DecisionInterest::kRefusals);
  HandleBoth();
  sink.Attach(all, DecisionInterest::kAll);
  HandleBoth();
  EXPECT_EQ(refusals->seen.size(), 2U);
  EXPECT_EQ(all->seen.size(), 2U);
  sink.Detach(all);
  EXPECT_EQ(sink.Interest(), DecisionInterest::kRefusals);
  HandleBoth();
  EXPECT_EQ(refusals->seen.size(), 3U);
  EXPECT_EQ(all->seen.size(), 2U);
}

TEST_F(DecisionSinkTest, ARecordContainsTheJudgementAndTheOutcome) {
  sink.Attach(refusals, DecisionInterest::kRefusals);
  HandleBoth();
  ASSERT_EQ(refusals->seen.size(), 1U);
  const DecisionRecord& record = refusals->seen[0];
  EXPECT_EQ(record.code, 4097U);
  EXPECT_EQ(record.processId, 4711U);
  EXPECT_EQ(record.operation, "open");
  EXPECT_EQ(record.judged.event->Data().path, L"/a/x.secret");
  ASSERT_NE(record.judged.rule, nullptr);
  EXPECT_EQ(record.judged.rule->name, "secret");
  EXPECT_EQ(record.judged.decision, Decision::kVerdict4);
  EXPECT_EQ(record.end.verdict, 4U);
  EXPECT_EQ(record.end.latency, std::chrono::microseconds(52));
  EXPECT_EQ(record.Result(), DecisionResult::kRefused);
  EXPECT_LE(record.time, std::chrono::system_clock::now());
}

TEST_F(DecisionSinkTest, ALateRefusalIsStillReportedButAsAllowed) {
  sink.Attach(refusals, DecisionInterest::kRefusals);
  Handle(L"/a/x.secret", {.verdict = 0, .refused = false, .wouldRefuse = false, .cause = "late", .latency = {}});
  ASSERT_EQ(refusals->seen.size(), 1U);
  EXPECT_EQ(refusals->seen[0].Result(), DecisionResult::kAllowed);
}

TEST_F(DecisionSinkTest, ARecordKeepsTheRulesThatDecided) {
  sink.Attach(refusals, DecisionInterest::kRefusals);
  HandleBoth();
  judge.Replace({});
  EXPECT_EQ(refusals->seen[0].judged.rule->name, "secret");
}

TEST_F(DecisionSinkTest, AnEventThatWasNotJudgedHasNoRecord) {
  sink.Attach(all, DecisionInterest::kAll);
  DecisionScope scope(&sink, 4097);
  scope.End({.verdict = 8, .refused = false, .wouldRefuse = false, .cause = {}, .latency = {}});
  EXPECT_TRUE(all->seen.empty());
}

TEST_F(DecisionSinkTest, JudgingWithoutAScopeHasNoRecord) {
  sink.Attach(all, DecisionInterest::kAll);
  judge.Evaluate(std::make_shared<EventRecord>());
  EXPECT_TRUE(all->seen.empty());
}

TEST_F(DecisionSinkTest, DecisionsThatAreNotEnforcedLetTheOperationPass) {
  Rules rules = RulesOf("[[rules]]\npath = '*.secret'\ndecision = 3\n[[rules]]\npath = 'x'\ndecision = 4\n");
  rules.enforced = false;
  judge.Replace(rules);
  sink.Attach(refusals, DecisionInterest::kRefusals);
  const auto event = std::make_shared<EventRecord>();
  event->SetPath(L"/a/x.secret");
  EXPECT_EQ(judge.Evaluate(event), 2U);
  event->SetPath(L"x");
  EXPECT_EQ(judge.Evaluate(event), 4U) << "decision 4 does not refuse here";
  EXPECT_EQ(judge.NotEnforced(), 1U);
  EXPECT_EQ(judge.Decisions()[3], 1U);
  Handle(L"/a/x.secret", {.verdict = 3, .refused = false, .wouldRefuse = false, .cause = {}, .latency = {}});
  ASSERT_EQ(refusals->seen.size(), 1U);
  EXPECT_EQ(refusals->seen[0].Result(), DecisionResult::kWouldRefuse);
  EXPECT_EQ(refusals->seen[0].judged.decision, Decision::kVerdict4);
}

}  // namespace
}  // namespace fenlux::refhost
