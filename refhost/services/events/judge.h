// Judges events by ordered rules: the first one that matches decides.
#pragma once

#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>

#include "common/mutex.h"
#include "host/ao_arp.h"
#include "refhost/base/live_value.h"
#include "refhost/services/events/rules.h"

namespace fenlux::refhost {

class EventRecord;

// By a decision's number.
using DecisionCounts = std::array<std::uint64_t, kMaxDecision + 1>;
using DecisionFlags = std::array<bool, kMaxDecision + 1>;

// Told of every judgement on the thread that made it: the decision, the rule that made it (null: the default decision),
// and how long judging took. Must neither block nor throw.
using JudgementObserver = std::function<void(Decision decision, const Rule* rule, std::chrono::nanoseconds duration)>;

// What a judge needs to know of its host.
struct JudgeSettings {
  // The decision on an event whose program is unknown (its record has no image path) as soon as a rule's program
  // pattern would decide. Nothing: no program pattern matches such an event. A program that the host could not look at
  // for lack of descriptors or memory (kImageNotRead) leaves the event undecided there.
  std::optional<Decision> unknownProgram;
  // The decisions that refuse an operation.
  DecisionFlags refusing{};
  JudgementObserver observer;  // may be empty
};

class Judge final : public CAoArp {
 public:
  explicit Judge(Rules initialRules, JudgeSettings judgeSettings = {})
      : settings(std::move(judgeSettings)), rules(RulesInForce(std::move(initialRules))) {}

  // Also notes the judgement in the thread's DecisionScope.
  std::uint32_t Evaluate(const std::shared_ptr<CArpRecord>& record) override;

  // Any thread. An event that is being judged keeps the rules it started with.
  void Replace(Rules newRules);
  std::shared_ptr<const RulesInForce> InForce() const { return rules.Get(); }
  // How often each decision was made, by its number, whether it was enforced or not.
  DecisionCounts Decisions() const;
  // How many of them were made because the program was unknown.
  std::uint64_t UnknownPrograms() const { return unknownPrograms.load(); }
  // How many decisions would have refused an operation, and were not enforced.
  std::uint64_t NotEnforced() const { return notEnforced.load(); }
  const JudgeSettings& Settings() const { return settings; }

 private:
  struct Judged {
    Decision decision;
    const Rule* rule = nullptr;  // null: the default decision
    bool programUnknown = false;
  };
  Judged Decide(const Rules& current, const EventRecord& event) const;

  const JudgeSettings settings;
  Mutex replaceMutex;  // one replacement at a time; nothing is guarded by it alone
  LiveValue<RulesInForce> rules;
  std::atomic<std::uint64_t> unknownPrograms{0};
  std::atomic<std::uint64_t> notEnforced{0};
  std::array<std::atomic<std::uint64_t>, kMaxDecision + 1> decisions{};
};

}  // namespace fenlux::refhost
