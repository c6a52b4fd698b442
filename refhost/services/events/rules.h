// The rules for judging events, from the [judging] table of the configuration, and how often each rule decided.
#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/ao_arp.h"
#include "refhost/base/text/glob.h"
#include "refhost/services/events/decision_sink.h"
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
  std::size_t number = 0;         // its position in the order, from 1
  std::string file{};             // the file and the line where it begins
  std::uint32_t line = 0;

  // Whether the condition on the kind of event matches, and the one on the path.
  bool MatchesEvent(const EventData& event) const;
  bool MatchesPath(const EventData& event) const;
  // Whether all other conditions match, and whether the one on the program does.
  bool MatchesButProcess(const EventData& event) const { return MatchesEvent(event) && MatchesPath(event); }
  bool MatchesProcess(const EventData& event) const;

  // Its name or number in messages, and where it is defined: "cat" (host.toml:38), 2 (host.toml:44).
  std::string Label() const;
  // Whether it is the same rule at the same position.
  bool operator==(const Rule& other) const;
};

struct Rules {
  std::vector<Rule> ordered;
  Decision defaultDecision = Decision::kPass;  // if no rule matches
  bool enforced = true;                        // false: decisions that would refuse an operation allow it
  DecisionInterest logged = DecisionInterest::kRefusals;
  std::string file;  // the configuration file

  // Whether a rule has a pattern for the program.
  bool NameProcesses() const;
};

// Reads the [judging] table.
Rules ReadRules(const ConfigTable& table);
// "off", "refused" or "all", as the configuration writes it.
std::string_view LoggedName(DecisionInterest logged);

// How often a rule decided. Any thread. Each has its own cache line, so that threads that count different rules do not
// slow each other down.
class alignas(64) RuleHits {
 public:
  using TimePoint = std::chrono::system_clock::time_point;

  void Count(TimePoint now) {
    count.fetch_add(1, std::memory_order_relaxed);
    last.store(now.time_since_epoch().count(), std::memory_order_relaxed);
  }
  std::uint64_t Hits() const { return count.load(std::memory_order_relaxed); }
  // Nullopt if there was no hit.
  std::optional<TimePoint> LastHit() const {
    const TimePoint::rep time = last.load(std::memory_order_relaxed);
    return time == 0 ? std::nullopt : std::optional(TimePoint(TimePoint::duration(time)));
  }

 private:
  std::atomic<std::uint64_t> count{0};
  std::atomic<TimePoint::rep> last{0};
};

// Rules, and their hits since they came into force.
struct RulesInForce {
  explicit RulesInForce(Rules read);
  // Keeps the hits of `current` if the rules are the same.
  RulesInForce(Rules read, const RulesInForce& current);

  // The hits of one of these rules, or of the default decision if `rule` is null.
  RuleHits& HitsOf(const Rule* rule) const {
    return (*hits)[rule == nullptr ? rules.ordered.size() : static_cast<std::size_t>(rule - rules.ordered.data())];
  }

  Rules rules;
  std::chrono::system_clock::time_point since;
  std::shared_ptr<std::vector<RuleHits>> hits;  // one for each rule, followed by the one for the default decision
};

}  // namespace fenlux::refhost
