// Applies the rules in order, like the judge, and records which conditions do not match.
#include "refhost/services/events/explanation.h"

#include <fmt/format.h>

#include <stdexcept>

#include "refhost/base/text/utf_text.h"

namespace fenlux::refhost {
namespace {

EventData DataOf(const ExplainedEvent& event) {
  const std::optional<EventKind> kind = PlainKindOfCode(event.code);
  if (!kind) throw std::invalid_argument(fmt::format("notification code {} is never judged", event.code));
  EventData data;
  data.eventType = kind->type;
  data.category = kind->category;
  data.path = WideFromNarrow(event.path);
  if (event.program) data.imagePath = WideFromNarrow(*event.program);
  return data;
}

std::string Mismatch(const char* what, const Glob& pattern, const std::string& text) {
  return fmt::format("its {} {} does not match {}", what, pattern.Pattern(), text);
}

}  // namespace

Explanation Explain(const Rules& rules, const ExplainedEvent& event) {
  const EventData data = DataOf(event);
  Explanation explanation;
  for (const Rule& rule : rules.ordered) {
    RuleExplanation& current = explanation.rules.emplace_back();
    current.rule = &rule;
    if (!rule.MatchesEvent(data)) {
      current.reasons.push_back(fmt::format("the event (code {}, type {:#x}, category {}) is none of its events",
                                            event.code, data.eventType, data.category));
    }
    if (!rule.MatchesPath(data)) current.reasons.push_back(Mismatch("path", *rule.path, event.path));
    if (rule.process && event.program && !rule.MatchesProcess(data)) {
      current.reasons.push_back(Mismatch("process", *rule.process, *event.program));
    }
    if (rule.process && !event.program) {
      current.dependsOnProgram = current.reasons.empty();
      current.reasons.push_back(
          fmt::format("its process {} needs a program, and none is given", rule.process->Pattern()));
    }
    if (!current.reasons.empty()) continue;
    explanation.decider = &rule;
    explanation.decision = rule.decision;
    return explanation;
  }
  explanation.decision = rules.defaultDecision;
  return explanation;
}

}  // namespace fenlux::refhost
