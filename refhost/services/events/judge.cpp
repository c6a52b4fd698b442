// Applies the rules and counts the decisions.
#include "refhost/services/events/judge.h"

#include <utility>

#include "refhost/services/events/event_record.h"
#include "refhost/services/processes/process_queries.h"

namespace fenlux::refhost {

std::uint32_t Judge::Evaluate(const std::shared_ptr<CArpRecord>& record) {
  using Clock = std::chrono::steady_clock;
  const Clock::time_point begin = settings.observer ? Clock::now() : Clock::time_point();
  std::shared_ptr<const RulesInForce> current = rules.Get();
  auto* const event = dynamic_cast<EventRecord*>(record.get());
  const Judged judged = event == nullptr ? Judged{current->rules.defaultDecision} : Decide(current->rules, *event);
  const auto number = static_cast<std::uint32_t>(judged.decision);
  decisions[number].fetch_add(1, std::memory_order_relaxed);
  current->HitsOf(judged.rule).Count(std::chrono::system_clock::now());
  if (judged.programUnknown) unknownPrograms.fetch_add(1, std::memory_order_relaxed);
  Decision answer = judged.decision;
  if (settings.refusing[number] && !current->rules.enforced) {
    notEnforced.fetch_add(1, std::memory_order_relaxed);
    answer = Decision::kPass;
  }
  if (answer == Decision::kContext && judged.rule != nullptr) event->SetContextData(judged.rule->context);
  if (settings.observer) settings.observer(answer, judged.rule, Clock::now() - begin);
  if (DecisionScope* const scope = DecisionScope::Current(); scope != nullptr && event != nullptr) {
    scope->Judged({.event = std::shared_ptr<const EventRecord>(record, event),
                   .rules = std::move(current),
                   .rule = judged.rule,
                   .programUnknown = judged.programUnknown,
                   .decision = judged.decision,
                   .refuses = settings.refusing[number],
                   .enforced = answer == judged.decision});
  }
  return static_cast<std::uint32_t>(answer);
}

Judge::Judged Judge::Decide(const Rules& current, const EventRecord& event) const {
  const bool programUnknown = settings.unknownProgram && event.Data().imagePath.empty();
  for (const Rule& rule : current.ordered) {
    if (!rule.MatchesButProcess(event.Data())) continue;
    // Only the host's lack of resources hides the program, so leave the event undecided.
    if (rule.process && event.Data().imagePath == kImageNotRead) return {Decision::kUndecided, &rule};
    if (programUnknown && rule.process) return {*settings.unknownProgram, &rule, true};
    if (rule.MatchesProcess(event.Data())) return {rule.decision, &rule};
  }
  return {current.defaultDecision};
}

void Judge::Replace(Rules newRules) {
  const MutexLock lock(replaceMutex);
  rules.Set(RulesInForce(std::move(newRules), *rules.Get()));
}

DecisionCounts Judge::Decisions() const {
  DecisionCounts counts{};
  for (std::size_t index = 0; index < counts.size(); ++index) counts[index] = decisions[index].load();
  return counts;
}

}  // namespace fenlux::refhost
