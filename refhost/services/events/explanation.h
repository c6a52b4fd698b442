// Explains how an event would be judged: which rule decides, and why the earlier ones do not match.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "refhost/services/events/event_record.h"
#include "refhost/services/events/rules.h"

namespace fenlux::refhost {

// A hypothetical event to explain.
struct ExplainedEvent {
  std::uint32_t code = 0;              // one that the module judges
  std::string path;                    // UTF-8
  std::optional<std::string> program;  // its path; nullopt: any program that no rule names
};

// Why one rule matches or not.
struct RuleExplanation {
  const Rule* rule = nullptr;
  std::vector<std::string> reasons;  // UTF-8: the conditions that do not match; empty if the rule decides
  bool dependsOnProgram = false;     // it would decide for a matching program, but none was given
};

struct Explanation {
  std::vector<RuleExplanation> rules;  // in order, up to the one that decides
  const Rule* decider = nullptr;       // null: the default decision
  Decision decision = Decision::kPass;
};

// `rules` must outlive the result. The event has the type of its code without any flag. Throws std::invalid_argument
// if the module does not judge the code.
Explanation Explain(const Rules& rules, const ExplainedEvent& event);

}  // namespace fenlux::refhost
