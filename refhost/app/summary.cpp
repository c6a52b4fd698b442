// Builds the reports group by group, in the order in which they are shown.
#include "refhost/app/summary.h"

#include <fmt/format.h>

#include <nlohmann/json.hpp>
#include <string>
#include <utility>

#include "refhost/app/decisions/rules_report.h"
#include "refhost/app/recording/capture_settings.h"
#include "refhost/base/text/hex.h"

namespace fenlux::refhost {
namespace {

Report CountsReport(const std::map<std::uint32_t, std::uint64_t>& counts) {
  Report report = Report::object();
  for (const auto& [name, count] : counts) report[std::to_string(name)] = count;
  return report;
}

double Seconds(std::chrono::milliseconds time) { return RoundToTenths(std::chrono::duration<double>(time).count()); }

std::string SumText(const EmulatorTotals& totals) {
  const std::string sum = fmt::format("{} = {} + {} + {} + {}", totals.delivered, totals.answered,
                                      totals.unansweredByDesign, totals.late, totals.lost);
  return totals.inFlight == 0 ? sum : fmt::format("{} + {} in flight", sum, totals.inFlight);
}

Report NotificationsReport(const EmulatorTotals& totals) {
  Report report = Report::object();
  report["delivered"] = totals.delivered;
  report["answered"] = totals.answered;
  report["unanswered_by_design"] = totals.unansweredByDesign;
  report["late"] = totals.late;
  report["lost"] = totals.lost;
  report["in_flight"] = totals.inFlight;
  report["sum"] = SumText(totals);
  report["adds_up"] = totals.AddsUp();
  return report;
}

// What the port client counts. A real driver does not expose its own counts.
Report DriverPortReport(const FilterPortTotals& totals) {
  Report report = Report::object();
  report["requests"] = totals.requests;
  report["failed_requests"] = totals.failedRequests;
  report["received"] = totals.received;
  report["answered"] = totals.answered;
  report["no_answer_due"] = totals.noAnswerDue;
  report["answered_instead"] = totals.answeredInstead;
  report["late"] = totals.late;
  report["lost"] = totals.lost;
  report["in_flight"] = totals.inFlight;
  report["adds_up"] = totals.AddsUp();
  return report;
}

Report DecisionsReport(const DecisionCounts& decisions) {
  Report report = Report::object();
  for (std::size_t decision = kMinDecision; decision < decisions.size(); ++decision) {
    if (decisions[decision] > 0) report[std::to_string(decision)] = decisions[decision];
  }
  return report;
}

}  // namespace

Report UnjudgedReport(const EmulatorTotals& totals) {
  Report report = Report::object();
  for (std::size_t index = 0; index < kUnjudgedCauses; ++index) {
    if (totals.unjudged[index] == 0) continue;
    report[std::string(UnjudgedCauseName(static_cast<UnjudgedCause>(index)))] = totals.unjudged[index];
  }
  return report;
}

namespace {

Report LatencyReport(const LatencySummary& latency) {
  Report report = Report::object();
  report["count"] = latency.count;
  report["p50_us"] = Microseconds(latency.p50);
  report["p95_us"] = Microseconds(latency.p95);
  report["p99_us"] = Microseconds(latency.p99);
  report["max_us"] = Microseconds(latency.max);
  return report;
}

Report LogReport(const LogTotals& log) {
  Report report = Report::object();
  report["alerts"] = log.Of(Severity::kAlert);
  report["problems"] = log.Of(Severity::kProblem);
  report["warnings"] = log.Of(Severity::kWarning);
  report["notices"] = log.Of(Severity::kNotice);
  report["events"] = log.Of(Severity::kEvent);
  report["details"] = log.Of(Severity::kDetail);
  report["lines_written"] = log.written;
  report["lines_dropped"] = log.dropped;
  return report;
}

template <typename Value>
void AddIfSet(Report& report, const char* name, const std::optional<Value>& value) {
  if (value) report[name] = *value;
}

std::vector<std::string> Paths(const std::vector<MonitoredObject>& objects) {
  std::vector<std::string> paths;
  paths.reserve(objects.size());
  for (const MonitoredObject& object : objects) paths.push_back(object.path);
  return paths;
}

Report MonitoredReport(const MonitoredSet& monitored) {
  Report report = Report::object();
  report["commits"] = monitored.commits;
  report["committed"] = Paths(monitored.committed);
  report["pending"] = Paths(monitored.pending);
  return report;
}

std::vector<std::string> ItemTexts(const NetControlItems& items) {
  std::vector<std::string> texts;
  for (const NetControlItem& item : items) {
    texts.push_back(fmt::format("{} {}", HexText(item.opaque), item.value));
  }
  return texts;
}

void AddRules(Report& report, const SummaryFacts& facts) {
  if (facts.rules == nullptr) return;
  report["rules"] = RuleHitsReport(*facts.rules);
  report["enforced"] = facts.rules->rules.enforced;
  report["not_enforced"] = facts.notEnforced;
  Report log = Report::object();
  log["log"] = LoggedName(facts.rules->rules.logged);
  log["records"] = facts.log.content.logged;
  log["written"] = facts.log.content.written;
  log["lost"] = facts.log.content.dropped;
  log["unwanted"] = facts.log.content.unwanted;
  log["waiting"] = facts.log.content.Waiting();
  log["not_on_console"] = facts.notOnConsole;
  report["decision_log"] = std::move(log);
}

// The sizes of what the driver received; DriverReport shows the contents.
Report DriverSizesReport(const EmulatorState& driver) {
  Report report = Report::object();
  for (std::size_t index = 0; index < driver.monitored.size(); ++index) {
    report[fmt::format("monitored_type{}", index + 1)] = driver.monitored[index].committed.size();
  }
  report["net_control_mode"] = driver.netControlMode;
  for (std::size_t index = 0; index < driver.netControlItems.size(); ++index) {
    report[fmt::format("net_control_list{}", index + 1)] = driver.netControlItems[index].size();
  }
  report["system_processes"] = driver.systemProcesses.size();
  report["config_block_bytes"] = driver.configBlock ? driver.configBlock->size() : 0;
  report["dumps"] = driver.dumps;
  return report;
}

}  // namespace

std::vector<std::string> TotalsProblems(const SummaryFacts& facts) {
  std::vector<std::string> problems;
  if (facts.driver.protocolViolations > 0) {
    problems.push_back(fmt::format("{} protocol violations", facts.driver.protocolViolations));
  }
  if (!facts.totals.AddsUp() || (facts.filterPort && !facts.filterPort->AddsUp())) {
    problems.emplace_back("the totals do not add up");
  }
  return problems;
}

bool NeverConnected(const SummaryFacts& facts) {
  return facts.moduleEnabled && (facts.filterPort ? facts.filterPort->connects : facts.driver.connects) == 0;
}

bool IsFine(const SummaryFacts& facts) { return !NeverConnected(facts) && TotalsProblems(facts).empty(); }

Report SummaryReport(const SummaryFacts& facts) {
  Report report = Report::object();
  report["fine"] = IsFine(facts);
  std::vector<std::string> problems = TotalsProblems(facts);
  if (NeverConnected(facts)) problems.emplace_back("the driver never connected");
  if (!problems.empty()) report["not_fine_because"] = problems;
  report["running_seconds"] = Seconds(facts.running);

  Report connections = Report::object();
  if (facts.filterPort) {
    connections["opened"] = facts.filterPort->connects;
    connections["refused"] = facts.filterPort->refusedConnects;
  } else {
    connections["opened"] = facts.driver.connects;
    connections["refused"] = facts.driver.refusedConnects;
    connections["connected"] = facts.driver.connected;
  }
  connections["version_reports"] = facts.version.reports;
  connections["driver_version"] = facts.version.version;
  connections["policy_reads"] = facts.policyReads;
  connections["policy_reminders"] = facts.policyNotifications;
  connections["registered_interfaces"] = facts.registered.size();
  report["connections"] = std::move(connections);

  if (facts.filterPort) {
    report["driver_port"] = DriverPortReport(*facts.filterPort);
    report["decisions"] = DecisionsReport(facts.decisions);
    AddRules(report, facts);
  } else {
    report["driver_was_told"] = DriverSizesReport(facts.stateBeforeStop);
    report["notifications"] = NotificationsReport(facts.totals);
    report["codes"] = CountsReport(facts.totals.byCode);
    report["decisions"] = DecisionsReport(facts.decisions);
    report["verdicts"] = CountsReport(facts.totals.byVerdict);
    AddRules(report, facts);
    report["unjudged"] = UnjudgedReport(facts.totals);
    report["unjudged_refused"] = facts.totals.kernelRefusedUnjudged;
    report["unjudged_setting"] = UnjudgedPolicyName(facts.unjudgedPolicy);
    report["latency"] = LatencyReport(facts.totals.latency);
  }
  if (facts.totals.kernelEvents > 0) {
    Report kernel = Report::object();
    kernel["events"] = facts.totals.kernelEvents;
    kernel["allowed"] = facts.totals.kernelAllowed;
    kernel["refused"] = facts.totals.kernelRefused;
    report["kernel"] = std::move(kernel);
  }
  if (facts.recording.files > 0) report["recording"] = RecordingReport(facts.recording);
  report["log"] = LogReport(facts.log);
  report["protocol_violations"] = facts.driver.protocolViolations;
  if (!facts.driver.violationTexts.empty()) report["violations"] = facts.driver.violationTexts;
  return report;
}

Report DriverReport(const EmulatorState& driver) {
  Report report = Report::object();
  report["connected"] = driver.connected;
  report["connects"] = driver.connects;
  report["refused_connects"] = driver.refusedConnects;
  report["client_type"] = driver.clientType;
  report["port_value"] = driver.portValue;
  report["requests"] = CountsReport(driver.requests);
  for (std::size_t index = 0; index < driver.monitored.size(); ++index) {
    report[fmt::format("monitored_type{}", index + 1)] = MonitoredReport(driver.monitored[index]);
  }
  report["net_control_mode"] = driver.netControlMode;
  for (std::size_t index = 0; index < driver.netControlItems.size(); ++index) {
    report[fmt::format("net_control_list{}", index + 1)] = ItemTexts(driver.netControlItems[index]);
  }
  AddIfSet(report, "grpm_switch", driver.grpmSwitch);
  AddIfSet(report, "grsp_switch", driver.grspSwitch);
  AddIfSet(report, "grdto_value", driver.grdtoValue);
  AddIfSet(report, "grhara_off", driver.grharaOff);
  if (driver.spspSwitches) {
    Report spsp = Report::object();
    for (std::size_t index = 0; index < driver.spspSwitches->size(); ++index) {
      spsp[fmt::format("switch{}", index + 1)] = (*driver.spspSwitches)[index];
    }
    report["spsp_switches"] = std::move(spsp);
  }
  Report processes = Report::object();
  for (const auto& [kind, processId] : driver.systemProcesses) processes[std::to_string(kind)] = processId;
  report["system_processes"] = std::move(processes);
  if (driver.configBlock) report["config_block"] = HexText(*driver.configBlock);
  report["dumps"] = driver.dumps;
  report["versions_asked"] = driver.versionsAsked;
  report["protocol_violations"] = driver.protocolViolations;
  report["violations"] = driver.violationTexts;
  return report;
}

}  // namespace fenlux::refhost
