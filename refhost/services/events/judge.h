// Judges events by ordered rules: the first one that matches decides.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
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
struct EventData;

// Matches an event if all of its conditions do.
struct Rule {
  std::string name;
  std::vector<EventKind> events;  // empty: every event
  std::optional<Glob> path;       // matches the event's path or its second path
  std::optional<Glob> process;    // matches the path of the process's image
  Decision decision = Decision::kPass;
  std::shared_ptr<CBuf> context;  // for Decision::kContext: UTF-16, little-endian

  bool Matches(const EventData& event) const;
};

struct Rules {
  std::vector<Rule> ordered;
  Decision defaultDecision = Decision::kPass;  // if no rule matches
};

// Reads the [judging] table.
Rules ReadRules(const ConfigTable& table);

using DecisionCounts = std::array<std::uint64_t, kMaxDecision + 1>;

class Judge final : public CAoArp {
 public:
  explicit Judge(Rules initialRules) : rules(std::move(initialRules)) {}

  std::uint32_t Evaluate(const std::shared_ptr<CArpRecord>& record) override;

  // Any thread. An event that is being judged keeps the rules it started with.
  void Replace(Rules newRules) { rules.Set(std::move(newRules)); }
  // How often each decision was made, indexed by its number.
  DecisionCounts Decisions() const;

 private:
  LiveValue<Rules> rules;
  std::array<std::atomic<std::uint64_t>, kMaxDecision + 1> decisions{};
};

}  // namespace fenlux::refhost
