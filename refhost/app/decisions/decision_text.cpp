// What a record says, in one place for the log, the console and watchers.
#include "refhost/app/decisions/decision_text.h"

#include <fmt/format.h>

#include <array>
#include <iterator>
#include <nlohmann/json.hpp>

#include "refhost/base/text/utf_text.h"
#include "refhost/services/events/event_record.h"
#include "refhost/services/events/rules.h"

namespace fenlux::refhost {
namespace {

constexpr std::array<std::string_view, 4> kResultNames{"allowed", "refused", "would refuse", "no reply"};

std::string EventText(const DecisionRecord& record) {
  if (!record.operation.empty()) return std::string(record.operation);
  const EventData& event = record.judged.event->Data();
  const std::string_view name = EventName({event.eventType, event.category});
  return name.empty() ? fmt::format("event {:#x}", event.eventType) : std::string(name);
}

// The last component of the program's path, and the process id.
std::string ProcessText(const DecisionRecord& record) {
  std::wstring program = record.judged.event == nullptr ? std::wstring() : record.judged.event->Data().imagePath;
  program.erase(0, program.find_last_of(L"/\\") + 1);
  return fmt::format("{}[{}]", program.empty() ? "?" : NarrowFromWide(program), record.processId);
}

std::string VerdictText(const DecisionEnd& end) {
  const std::string verdict = end.verdict == 0 ? "no verdict" : fmt::format("verdict {}", end.verdict);
  return end.cause.empty() ? verdict : fmt::format("{} ({})", verdict, end.cause);
}

Report RuleReport(const Rule& rule) {
  Report report = Report::object();
  report["number"] = rule.number;
  report["name"] = rule.name;
  report["file"] = rule.file;
  report["line"] = rule.line;
  return report;
}

}  // namespace

std::string_view DecisionResultName(DecisionResult result) { return kResultNames[static_cast<std::size_t>(result)]; }

std::string DeciderText(const Rule* rule) { return rule == nullptr ? "the default" : "rule " + rule->Label(); }

std::string DecisionText(const DecisionRecord& record) {
  const DecisionEnd& end = record.end;
  const JudgedEvent& judged = record.judged;
  std::string text =
      fmt::format("{} {} {}", DecisionResultName(record.Result()), ProcessText(record), EventText(record));
  if (judged.event == nullptr) return fmt::format("{}, not judged: {}", text, end.cause);
  const auto append = std::back_inserter(text);
  const EventData& event = judged.event->Data();
  if (!event.path.empty()) fmt::format_to(append, " {}", NarrowFromWide(event.path));
  if (!event.secondPath.empty()) fmt::format_to(append, " and {}", NarrowFromWide(event.secondPath));
  fmt::format_to(append, " {} {}", end.cause.empty() ? "by" : "despite", DeciderText(judged.rule));
  if (judged.programUnknown) text += ", whose program is not established";
  fmt::format_to(append, ", decision {}{}, {}, {} us", static_cast<std::uint32_t>(judged.decision),
                 judged.enforced ? "" : " not enforced", VerdictText(end),
                 std::chrono::duration_cast<std::chrono::microseconds>(end.latency).count());
  return text;
}

Report DecisionReport(const DecisionRecord& record) {
  Report report = Report::object();
  report["result"] = DecisionResultName(record.Result());
  report["pid"] = record.processId;
  report["code"] = record.code;
  report["operation"] = EventText(record);
  if (record.judged.event != nullptr) {
    const EventData& event = record.judged.event->Data();
    report["program"] = NarrowFromWide(event.imagePath);
    report["event"] = EventName({event.eventType, event.category});
    report["type"] = event.eventType;
    report["path"] = NarrowFromWide(event.path);
    report["second_path"] = NarrowFromWide(event.secondPath);
    report["rule"] = record.judged.rule == nullptr ? Report(nullptr) : RuleReport(*record.judged.rule);
    report["decision"] = static_cast<std::uint32_t>(record.judged.decision);
    report["enforced"] = record.judged.enforced;
    report["program_established"] = !record.judged.programUnknown;
    report["latency_us"] = Microseconds(record.end.latency);
  }
  report["verdict"] = record.end.verdict;
  report["cause"] = record.end.cause;
  return report;
}

}  // namespace fenlux::refhost
