// Reading of rules, and judging by them.
#include "refhost/services/events/judge.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>

#include "refhost/base/config/config_reader.h"
#include "refhost/base/text/similar_words.h"
#include "refhost/base/text/utf_text.h"
#include "refhost/services/events/event_record.h"
#include "refhost/services/heap_buffer.h"

namespace fenlux::refhost {
namespace {

std::shared_ptr<CBuf> ContextBuffer(const std::string& text) {
  std::vector<std::uint8_t> bytes;
  for (const char16_t unit : Utf16FromWide(WideFromNarrow(text))) {
    bytes.push_back(static_cast<std::uint8_t>(unit & 0xFF));
    bytes.push_back(static_cast<std::uint8_t>(unit >> 8));
  }
  return std::make_shared<HeapBuffer>(std::move(bytes));
}

void Append(std::vector<EventKind>& kinds, const std::vector<EventKind>& more) {
  kinds.insert(kinds.end(), more.begin(), more.end());
}

std::vector<EventKind> ReadEvents(const ConfigTable& table) {
  std::vector<EventKind> kinds;
  for (const std::string& name : table.Texts("events")) {
    const std::vector<EventKind> named = EventKindsOfName(name);
    if (named.empty()) {
      table.Report("events", fmt::format("\"{}\" is not one of {}{}", name, fmt::join(EventNames(), ", "),
                                         DidYouMean(name, EventNames())));
    }
    Append(kinds, named);
  }
  for (const std::int64_t code : table.Integers("codes", 1, 0xFFFF)) {
    const std::vector<EventKind> coded = EventKindsOfCode(static_cast<std::uint32_t>(code));
    if (coded.empty()) {
      table.Report("codes", fmt::format("notification code {} is never judged", code));
    }
    Append(kinds, coded);
  }
  for (const std::int64_t type : table.Integers("types", 1, 0xFFFF)) {
    kinds.push_back({static_cast<std::uint32_t>(type), 0});
  }
  return kinds;
}

std::optional<Glob> ReadGlob(const ConfigTable& table, std::string_view key) {
  if (!table.Has(key)) return std::nullopt;
  const std::string pattern = table.ExpandedText(key, "**");
  if (pattern.empty()) table.Report(key, "must not be empty");
  return Glob(pattern);
}

Rule ReadRule(const ConfigTable& table) {
  Rule rule;
  rule.name = table.Text("name", "");
  rule.events = ReadEvents(table);
  rule.path = ReadGlob(table, "path");
  rule.process = ReadGlob(table, "process");
  rule.decision = static_cast<Decision>(table.RequiredUnsigned("decision", kMinDecision, kMaxDecision));
  const bool hasContext = table.Has("context");
  if (hasContext) rule.context = ContextBuffer(table.Text("context", ""));
  if (hasContext && rule.decision != Decision::kContext) table.Report("context", "requires decision 5");
  if (!hasContext && rule.decision == Decision::kContext) {
    table.Report("decision", "5 requires a context; write context = \"\" to leave it out on purpose");
  }
  return rule;
}

}  // namespace

bool Rule::MatchesButProcess(const EventData& event) const {
  const auto isThisEvent = [&](const EventKind& kind) {
    return kind.type == event.eventType && (kind.category == 0 || kind.category == event.category);
  };
  if (!events.empty() && std::ranges::none_of(events, isThisEvent)) return false;
  return !path || path->Matches(event.path) || (!event.secondPath.empty() && path->Matches(event.secondPath));
}

bool Rule::MatchesProcess(const EventData& event) const { return !process || process->Matches(event.imagePath); }

bool Rules::NameProcesses() const {
  return std::ranges::any_of(ordered, [](const Rule& rule) { return rule.process.has_value(); });
}

Rules ReadRules(const ConfigTable& table) {
  Rules rules;
  rules.defaultDecision = static_cast<Decision>(table.Unsigned(
      "default_decision", static_cast<std::uint32_t>(rules.defaultDecision), kMinDecision, kMaxDecision));
  if (rules.defaultDecision == Decision::kContext) {
    table.Report("default_decision", "cannot be 5: only rules have a context");
  }
  for (const ConfigTable& rule : table.Tables("rules")) rules.ordered.push_back(ReadRule(rule));
  return rules;
}

std::uint32_t Judge::Evaluate(const std::shared_ptr<CArpRecord>& record) {
  using Clock = std::chrono::steady_clock;
  const Clock::time_point begin = observer ? Clock::now() : Clock::time_point();
  const std::shared_ptr<const Rules> current = rules.Get();
  auto* const event = dynamic_cast<EventRecord*>(record.get());
  const Judged judged = event == nullptr ? Judged{current->defaultDecision, nullptr} : Decide(*current, *event);
  const auto number = static_cast<std::uint32_t>(judged.decision);
  decisions[number].fetch_add(1, std::memory_order_relaxed);
  if (observer) observer(judged.decision, judged.rule, Clock::now() - begin);
  return number;
}

Judge::Judged Judge::Decide(const Rules& current, EventRecord& event) {
  const bool programUnknown = unknownProgramDecision && event.Data().imagePath.empty();
  for (const Rule& rule : current.ordered) {
    if (!rule.MatchesButProcess(event.Data())) continue;
    if (programUnknown && rule.process) {
      unknownPrograms.fetch_add(1, std::memory_order_relaxed);
      return {*unknownProgramDecision, &rule};
    }
    if (!rule.MatchesProcess(event.Data())) continue;
    if (rule.context != nullptr) event.SetContextData(rule.context);
    return {rule.decision, &rule};
  }
  return {current.defaultDecision, nullptr};
}

DecisionCounts Judge::Decisions() const {
  DecisionCounts counts{};
  for (std::size_t index = 0; index < counts.size(); ++index) counts[index] = decisions[index].load();
  return counts;
}

}  // namespace fenlux::refhost
