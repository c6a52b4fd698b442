// Turns a question into an event, and its explanation into reports.
#include "refhost/app/decisions/explain_report.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <charconv>
#include <nlohmann/json.hpp>
#include <vector>

#include "refhost/app/decisions/decision_text.h"
#include "refhost/base/text/similar_words.h"
#include "refhost/base/text/utf_text.h"
#include "refhost/services/events/explanation.h"
#include "refhost/services/processes/process_queries.h"

namespace fenlux::refhost {
namespace {

// What the emulated driver sends for a file that a program opens.
constexpr std::uint32_t kOpenCode = 4097;

std::uint32_t Number(const std::string& text, const char* what) {
  std::uint32_t number = 0;
  const auto result = std::from_chars(text.data(), text.data() + text.size(), number);
  if (result.ec != std::errc() || result.ptr != text.data() + text.size()) {
    throw ExplainError(fmt::format("{} must be a number, not \"{}\"", what, text));
  }
  return number;
}

std::uint32_t CodeOf(const ExplainQuestion& question) {
  if (question.code && question.event) throw ExplainError("give a code or an event, not both");
  if (question.event) {
    const std::optional<std::uint32_t> code = CodeOfName(*question.event);
    if (code) return *code;
    throw ExplainError(fmt::format("event \"{}\" is not one of {}{}", *question.event, fmt::join(EventNames(), ", "),
                                   DidYouMean(*question.event, EventNames())));
  }
  if (!question.code) return kOpenCode;
  const std::uint32_t code = Number(*question.code, "the code");
  if (!PlainKindOfCode(code)) throw ExplainError(fmt::format("notification code {} is never judged", code));
  return code;
}

std::optional<std::string> ProgramOf(const ExplainQuestion& question) {
  if (!question.processId) return question.process;
  if (question.process) throw ExplainError("give a process or a pid, not both");
  const std::uint32_t processId = Number(*question.processId, "the pid");
  if (!ProcessRuns(processId)) throw ExplainError(fmt::format("there is no process {}", processId));
  const std::wstring image = ProcessImagePath(processId);
  if (image.empty()) {
    throw ExplainError(
        fmt::format("the program of process {} cannot be established: it may not be queried, or its "
                    "file was replaced or is not the one of that name",
                    processId));
  }
  return NarrowFromWide(image);
}

Report RuleReport(const RuleExplanation& explained) {
  Report report = Report::object();
  report["number"] = explained.rule->number;
  report["name"] = explained.rule->name;
  report["file"] = explained.rule->file;
  report["line"] = explained.rule->line;
  report["label"] = explained.rule->Label();
  report["matches"] = explained.reasons.empty();
  report["reasons"] = explained.reasons;
  report["depends_on_program"] = explained.dependsOnProgram;
  return report;
}

}  // namespace

Report ExplainReport(const Rules& rules, const DecisionFlags& refusing, const ExplainQuestion& question) {
  const ExplainedEvent event{CodeOf(question), question.path, ProgramOf(question)};
  const Explanation explanation = Explain(rules, event);
  const auto decision = static_cast<std::uint32_t>(explanation.decision);
  DecisionResult result = DecisionResult::kAllowed;
  if (refusing[decision]) result = rules.enforced ? DecisionResult::kRefused : DecisionResult::kWouldRefuse;
  Report report = Report::object();
  report["path"] = event.path;
  report["program"] = event.program.value_or(std::string());
  report["code"] = event.code;
  report["result"] = DecisionResultName(result);
  report["decision"] = decision;
  report["decided_by"] = DeciderText(explanation.decider);
  Report explained = Report::array();
  for (const RuleExplanation& rule : explanation.rules) explained.push_back(RuleReport(rule));
  report["rules"] = std::move(explained);
  return report;
}

std::string ExplainText(const Report& report) {
  const auto text = [](const Report& object, const char* name) { return Printable(object[name].get<std::string>()); };
  const std::string program = text(report, "program");
  std::string lines = fmt::format("{}: {} (code {}), by {}\n", text(report, "result"), text(report, "path"),
                                  report["code"].dump(), program.empty() ? "a program that no rule names" : program);
  lines += fmt::format("decided by {}, decision {}\n", text(report, "decided_by"), report["decision"].dump());
  for (const Report& rule : report["rules"]) {
    const bool matches = rule["matches"].get<bool>();
    lines += fmt::format("  rule {} {}", text(rule, "label"), matches ? "matches" : "does not match: ");
    std::vector<std::string> reasons;
    for (const Report& reason : rule["reasons"]) reasons.push_back(Printable(reason.get<std::string>()));
    lines += fmt::format("{}\n", fmt::join(reasons, "; "));
    if (rule["depends_on_program"].get<bool>()) lines += "    it decides if the program matches\n";
  }
  return lines;
}

}  // namespace fenlux::refhost
