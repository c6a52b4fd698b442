// Reads rules, and tests their conditions.
#include "refhost/services/events/rules.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <tuple>
#include <utility>

#include "host/buf.h"
#include "refhost/base/config/config_reader.h"
#include "refhost/base/text/similar_words.h"
#include "refhost/base/text/utf_text.h"
#include "refhost/services/events/event_record.h"
#include "refhost/services/heap_buffer.h"

namespace fenlux::refhost {
namespace {

const ConfigChoices<DecisionInterest> kLogged{
    {"off", DecisionInterest::kNone}, {"refused", DecisionInterest::kRefusals}, {"all", DecisionInterest::kAll}};

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

Rule ReadRule(const ConfigTable& table, std::size_t number) {
  Rule rule;
  rule.number = number;
  rule.file = table.File().string();
  rule.line = table.Line();
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

bool SameBytes(const std::shared_ptr<CBuf>& a, const std::shared_ptr<CBuf>& b) {
  if (a == nullptr || b == nullptr) return a == b;
  return std::equal(a->GetData(), a->GetData() + a->GetSize(), b->GetData(), b->GetData() + b->GetSize());
}

}  // namespace

bool Rule::MatchesEvent(const EventData& event) const {
  const auto isThisEvent = [&](const EventKind& kind) {
    return kind.type == event.eventType && (kind.category == 0 || kind.category == event.category);
  };
  return events.empty() || std::ranges::any_of(events, isThisEvent);
}

bool Rule::MatchesPath(const EventData& event) const {
  return !path || path->Matches(event.path) || (!event.secondPath.empty() && path->Matches(event.secondPath));
}

bool Rule::MatchesProcess(const EventData& event) const { return !process || process->Matches(event.imagePath); }

std::string Rule::Label() const {
  const std::string place = fmt::format("{}:{}", boost::filesystem::path(file).filename().string(), line);
  return name.empty() ? fmt::format("{} ({})", number, place) : fmt::format("\"{}\" ({})", name, place);
}

bool Rule::operator==(const Rule& other) const {
  const auto values = [](const Rule& rule) {
    return std::tie(rule.name, rule.events, rule.path, rule.process, rule.decision, rule.number, rule.file, rule.line);
  };
  return values(*this) == values(other) && SameBytes(context, other.context);
}

bool Rules::NameProcesses() const {
  return std::ranges::any_of(ordered, [](const Rule& rule) { return rule.process.has_value(); });
}

Rules ReadRules(const ConfigTable& table) {
  Rules rules;
  rules.file = table.File().string();
  rules.defaultDecision = static_cast<Decision>(table.Unsigned(
      "default_decision", static_cast<std::uint32_t>(rules.defaultDecision), kMinDecision, kMaxDecision));
  if (rules.defaultDecision == Decision::kContext) {
    table.Report("default_decision", "cannot be 5: only rules have a context");
  }
  rules.enforced = table.Boolean("enforce", rules.enforced);
  rules.logged = table.Choice("log", rules.logged, kLogged);
  for (const ConfigTable& rule : table.Tables("rules")) {
    rules.ordered.push_back(ReadRule(rule, rules.ordered.size() + 1));
  }
  return rules;
}

std::string_view LoggedName(DecisionInterest logged) { return kLogged[static_cast<std::size_t>(logged)].first; }

RulesInForce::RulesInForce(Rules read)
    : rules(std::move(read)),
      since(std::chrono::system_clock::now()),
      hits(std::make_shared<std::vector<RuleHits>>(rules.ordered.size() + 1)) {}

RulesInForce::RulesInForce(Rules read, const RulesInForce& current) : RulesInForce(std::move(read)) {
  if (rules.ordered != current.rules.ordered || rules.defaultDecision != current.rules.defaultDecision) return;
  since = current.since;
  hits = current.hits;
}

}  // namespace fenlux::refhost
