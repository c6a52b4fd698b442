// The judge of events: ordered rules, of which the first that matches decides.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "host/ao_arp.h"
#include "refhost/base/text/glob.h"
#include "refhost/base/live_value.h"
#include "refhost/services/events/event_types.h"

namespace fenlux {
class CBuf;
}

namespace fenlux::refhost {

class ConfigTable;
struct EventData;

inline constexpr std::uint32_t kLeastDecision = 1;
inline constexpr std::uint32_t kMostDecision = 7;
inline constexpr std::uint32_t kPassDecision = 2;
inline constexpr std::uint32_t kContextDecision = 5;  // carries context data to the driver

// A rule matches where everything that it names does.
struct Rule {
  std::string name;
  std::vector<EventKind> events;  // empty: every event
  std::optional<Glob> path;       // of the event's path or its second path
  std::optional<Glob> process;    // of the process's image
  std::uint32_t decision = kPassDecision;
  std::shared_ptr<CBuf> context;  // of decision 5: UTF-16, little-endian

  bool Matches(const EventData& event) const;
};

struct Rules {
  std::vector<Rule> ordered;
  std::uint32_t defaultDecision = kPassDecision;  // where no rule matches
};

// Reads the [judging] table.
Rules ReadRules(const ConfigTable& table);

class Judge final : public CAoArp {
 public:
  explicit Judge(Rules initialRules) : rules(std::move(initialRules)) {}

  std::uint32_t Evaluate(const std::shared_ptr<CArpRecord>& record) override;

  // Any thread, at any time; an event that is being judged is judged by the rules it began with.
  void Replace(Rules newRules) { rules.Set(std::move(newRules)); }
  // How often each decision was given, by its number.
  std::array<std::uint64_t, kMostDecision + 1> Decisions() const;

 private:
  LiveValue<Rules> rules;
  std::array<std::atomic<std::uint64_t>, kMostDecision + 1> decisions{};
};

}  // namespace fenlux::refhost
