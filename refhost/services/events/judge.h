// Judges events by ordered rules: the first one that matches decides.
#pragma once

#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "host/ao_arp.h"
#include "refhost/base/live_value.h"
#include "refhost/base/text/glob.h"
#include "refhost/services/events/event_types.h"

namespace fenlux {
class CBuf;
}

namespace fenlux::refhost {

class ConfigTable;
class EventRecord;
struct EventData;

// Matches an event if all of its conditions do.
struct Rule {
  std::string name;
  std::vector<EventKind> events;  // empty: every event
  std::optional<Glob> path;       // matches the event's path or its second path
  std::optional<Glob> process;    // matches the path of the process's image
  Decision decision = Decision::kPass;
  std::shared_ptr<CBuf> context;  // for Decision::kContext: UTF-16, little-endian

  // Whether all conditions match except that on the program, and whether that one does.
  bool MatchesButProcess(const EventData& event) const;
  bool MatchesProcess(const EventData& event) const;
};

struct Rules {
  std::vector<Rule> ordered;
  Decision defaultDecision = Decision::kPass;  // if no rule matches

  // Whether a rule has a pattern for the program.
  bool NameProcesses() const;
};

// Reads the [judging] table.
Rules ReadRules(const ConfigTable& table);

using DecisionCounts = std::array<std::uint64_t, kMaxDecision + 1>;

// Told of every judgement on the thread that made it: the decision, the rule that made it (null: the default decision),
// and how long judging took. Must neither block nor throw.
using JudgementObserver = std::function<void(Decision decision, const Rule* rule, std::chrono::nanoseconds duration)>;

class Judge final : public CAoArp {
 public:
  // With `unknownProgram`, that is the decision on an event whose program is unknown (its record has no image path) as
  // soon as a rule's program pattern would decide. Without, no program pattern matches such an event.
  // `judgementObserver` may be empty.
  explicit Judge(Rules initialRules, std::optional<Decision> unknownProgram = std::nullopt,
                 JudgementObserver judgementObserver = {})
      : rules(std::move(initialRules)),
        unknownProgramDecision(unknownProgram),
        observer(std::move(judgementObserver)) {}

  std::uint32_t Evaluate(const std::shared_ptr<CArpRecord>& record) override;

  // Any thread. An event that is being judged keeps the rules it started with.
  void Replace(Rules newRules) { rules.Set(std::move(newRules)); }
  // How often each decision was made, indexed by its number.
  DecisionCounts Decisions() const;
  // How many of them were made because the program was unknown.
  std::uint64_t UnknownPrograms() const { return unknownPrograms.load(); }

 private:
  struct Judged {
    Decision decision;
    const Rule* rule;  // null: the default decision
  };
  Judged Decide(const Rules& current, EventRecord& event);

  LiveValue<Rules> rules;
  const std::optional<Decision> unknownProgramDecision;
  const JudgementObserver observer;
  std::atomic<std::uint64_t> unknownPrograms{0};
  std::array<std::atomic<std::uint64_t>, kMaxDecision + 1> decisions{};
};

}  // namespace fenlux::refhost
