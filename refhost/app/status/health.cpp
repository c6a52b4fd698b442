// The conditions of a healthy host, and how its health is shown.
#include "refhost/app/status/health.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <nlohmann/json.hpp>

#include "refhost/app/exit_codes.h"
#include "refhost/base/text/utf_text.h"

namespace fenlux::refhost {
namespace {

constexpr char kHealthy[] = "healthy";
constexpr char kDegraded[] = "degraded";
constexpr char kUnreachable[] = "not reachable";

std::string ConnectionProblem(const StatusFacts& facts) {
  const SummaryFacts& summary = facts.summary;
  if (!summary.moduleEnabled || facts.ready) return {};
  if (NeverConnected(summary)) {
    return summary.driver.refusalReason.empty()
               ? "the driver never connected"
               : "the driver never connected; the last attempt was refused: " + summary.driver.refusalReason;
  }
  if (summary.driver.connected) return "the connection is not ready yet";
  return summary.driver.endReason.empty() ? "no connection" : "no connection: " + summary.driver.endReason;
}

Report ReportOf(const char* health, const std::vector<std::string>& problems) {
  Report report = Report::object();
  report["health"] = health;
  if (!problems.empty()) report["problems"] = problems;
  return report;
}

}  // namespace

std::vector<std::string> HealthProblems(const StatusFacts& facts) {
  std::vector<std::string> problems;
  const auto add = [&problems](bool wrong, std::string text) {
    if (wrong) problems.push_back(std::move(text));
  };
  const std::string connection = ConnectionProblem(facts);
  add(!connection.empty(), connection);
  for (const auto* directories : {&facts.policy, &facts.otherDirectories}) {
    for (const PolicyDirectory& directory : *directories) {
      add(connection.empty() && facts.summary.moduleEnabled && !directory.missing.empty(),
          fmt::format("{} is not watched: {}", directory.path, directory.missing));
    }
  }
  const HistoryWindow& recent = facts.history.back();
  add(recent.lostLines > 0, fmt::format("{} log lines lost in the last 10 minutes", recent.lostLines));
  add(recent.unjudgedByLoad > 0, fmt::format("{} operations not judged in the last 10 minutes", recent.unjudgedByLoad));
  add(facts.lastReloadRefused, "the last reload was refused");
  add(facts.summary.recording.active && !facts.summary.recording.error.empty(),
      "the recording fails: " + facts.summary.recording.error);
  for (const std::string& problem : TotalsProblems(facts.summary)) add(true, problem);
  return problems;
}

Report HealthReport(const StatusFacts& facts) {
  const std::vector<std::string> problems = HealthProblems(facts);
  return ReportOf(problems.empty() ? kHealthy : kDegraded, problems);
}

std::string HealthText(const Report& report) {
  const auto health = report.at("health").get<std::string>();
  if (!report.contains("problems")) return health + "\n";
  const auto problems = report.at("problems").get<std::vector<std::string>>();
  return fmt::format("{}: {}\n", health, Printable(fmt::format("{}", fmt::join(problems, "; "))));
}

int HealthExitCode(const Report& report) {
  const auto health = report.at("health").get<std::string>();
  if (health == kHealthy) return kExitSuccess;
  return health == kDegraded ? kExitDegraded : kExitNotReachable;
}

Report UnreachableReport(const std::string& reason) { return ReportOf(kUnreachable, {reason}); }

}  // namespace fenlux::refhost
