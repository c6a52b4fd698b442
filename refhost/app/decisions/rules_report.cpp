// Builds the reports, and the table.
#include "refhost/app/decisions/rules_report.h"

#include <fmt/format.h>

#include <nlohmann/json.hpp>

#include "refhost/base/text/utf_text.h"
#include "refhost/services/log/log_time.h"

namespace fenlux::refhost {
namespace {

void AddHits(Report& report, const RuleHits& hits) {
  report["hits"] = hits.Hits();
  const auto last = hits.LastHit();
  report["last_hit"] = last ? LogTimeText(*last) : std::string();
}

Report RuleReport(const Rule& rule, const RuleHits& hits) {
  Report report = Report::object();
  report["number"] = rule.number;
  report["name"] = rule.name;
  report["line"] = rule.line;
  report["path"] = rule.path ? rule.path->Pattern() : std::string();
  report["process"] = rule.process ? rule.process->Pattern() : std::string();
  Report events = Report::array();
  for (const EventKind& kind : rule.events) {
    Report event = Report::object();
    event["type"] = kind.type;
    event["category"] = kind.category;
    events.push_back(std::move(event));
  }
  report["events"] = std::move(events);
  report["decision"] = static_cast<std::uint32_t>(rule.decision);
  AddHits(report, hits);
  return report;
}

std::string Line(const std::string& number, const std::string& line, const Report& rule, const std::string& name) {
  const auto last = rule["last_hit"].get<std::string>();
  std::string text = fmt::format("{:>7}  {:>5}  {:>8}  {:>10}  {:<29}  {}", number, line, rule["decision"].dump(),
                                 rule["hits"].dump(), last.empty() ? "never" : last, name);
  text.erase(text.find_last_not_of(' ') + 1);
  return text + "\n";
}

// The number distinguishes two rules with the same name.
std::string HitsKey(const Rule& rule) {
  return rule.name.empty() ? rule.Label() : fmt::format("{} {}", rule.number, rule.Label());
}

}  // namespace

Report RulesReport(const RulesInForce& current) {
  Report report = Report::object();
  report["file"] = current.rules.file;
  report["since"] = LogTimeText(current.since);
  report["enforced"] = current.rules.enforced;
  Report rules = Report::array();
  for (const Rule& rule : current.rules.ordered) rules.push_back(RuleReport(rule, current.HitsOf(&rule)));
  report["rules"] = std::move(rules);
  Report byDefault = Report::object();
  byDefault["decision"] = static_cast<std::uint32_t>(current.rules.defaultDecision);
  AddHits(byDefault, current.HitsOf(nullptr));
  report["default"] = std::move(byDefault);
  return report;
}

std::string RulesText(const Report& report) {
  std::string text = fmt::format("rules of {}, since {}{}\n", Printable(report["file"].get<std::string>()),
                                 report["since"].get<std::string>(),
                                 report["enforced"].get<bool>() ? "" : ", not enforced: nothing is refused");
  text +=
      fmt::format("{:>7}  {:>5}  {:>8}  {:>10}  {:<29}  {}\n", "rule", "line", "decision", "hits", "last hit", "name");
  for (const Report& rule : report["rules"]) {
    text += Line(rule["number"].dump(), rule["line"].dump(), rule, Printable(rule["name"].get<std::string>()));
  }
  return text + Line("default", "", report["default"], "");
}

Report RuleHitsReport(const RulesInForce& current) {
  Report report = Report::object();
  for (const Rule& rule : current.rules.ordered) {
    report[HitsKey(rule)] = current.HitsOf(&rule).Hits();
  }
  report["default"] = current.HitsOf(nullptr).Hits();
  return report;
}

}  // namespace fenlux::refhost
