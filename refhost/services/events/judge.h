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

// Indexed by a decision's number.
using DecisionCounts = std::array<std::uint64_t, kMaxDecision + 1>;
using DecisionFlags = std::array<bool, kMaxDecision + 1>;

// Called after every judgement on the thread that made it, with the decision, the rule that decided (null: the default
// decision), and how long judging took. Must neither block nor throw.
using JudgementObserver = std::function<void(Decision decision, const Rule* rule, std::chrono::nanoseconds duration)>;

// The host's settings for a judge.
struct JudgeSettings {
  // The decision on an event whose program is unknown (its record has no image path) if a rule's program pattern would
  // decide. Nullopt: no program pattern matches such an event. If the host could not read the program for lack of
  // descriptors or memory (kImageNotRead), the event is left undecided in that case.
  std::optional<Decision> unknownProgram;
  // The decisions that refuse an operation.
  DecisionFlags refusing{};
  JudgementObserver observer;  // may be empty
};

class Judge final : public CAoArp {
 public:
  explicit Judge(Rules initialRules, JudgeSettings judgeSettings = {})
      : settings(std::move(judgeSettings)), rules(RulesInForce(std::move(initialRules))) {}

  // Also records the judgement in the thread's DecisionScope.
  std::uint32_t Evaluate(const std::shared_ptr<CArpRecord>& record) override;

  // Any thread. Events that are being judged keep the rules they started with.
  void Replace(Rules newRules);
  std::shared_ptr<const RulesInForce> InForce() const { return rules.Get(); }
  // How often each decision was made, by its number, whether or not it was enforced.
  DecisionCounts Decisions() const;
  // How many of them were made because the program was unknown.
  std::uint64_t UnknownPrograms() const { return unknownPrograms.load(); }
  // How many decisions would have refused an operation but were not enforced.
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
  Mutex replaceMutex;  // serializes replacements; guards no member by itself
  LiveValue<RulesInForce> rules;
  std::atomic<std::uint64_t> unknownPrograms{0};
  std::atomic<std::uint64_t> notEnforced{0};
  std::array<std::atomic<std::uint64_t>, kMaxDecision + 1> decisions{};
};

}  // namespace fenlux::refhost
