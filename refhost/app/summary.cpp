// From the counts to the reports, group by group in the order in which they are shown.
#include "refhost/app/summary.h"

#include <string>
#include <utility>

#include "refhost/base/text/hex.h"

namespace fenlux::refhost {
namespace {

Report CountsReport(const std::map<std::uint32_t, std::uint64_t>& counts) {
  Report report;
  for (const auto& [name, count] : counts) report.Add(std::to_string(name), count);
  return report;
}

double Microseconds(std::chrono::nanoseconds time) { return std::chrono::duration<double, std::micro>(time).count(); }

std::string SumText(const EmulatorTotals& totals) {
  std::string text = std::to_string(totals.delivered) + " = " + std::to_string(totals.answered) + " + " +
                     std::to_string(totals.unansweredByDesign) + " + " + std::to_string(totals.late) + " + " +
                     std::to_string(totals.lost);
  if (totals.inFlight > 0) text += " + " + std::to_string(totals.inFlight) + " in flight";
  return text;
}

Report NotificationsReport(const EmulatorTotals& totals) {
  Report report;
  report.Add("delivered", totals.delivered);
  report.Add("answered", totals.answered);
  report.Add("unanswered_by_design", totals.unansweredByDesign);
  report.Add("late", totals.late);
  report.Add("lost", totals.lost);
  report.Add("in_flight", totals.inFlight);
  report.Add("sum", SumText(totals));
  report.Add("adds_up", totals.AddsUp());
  return report;
}

// A real driver keeps what else there is to count to itself.
Report DriverPortReport(const FilterPortTotals& totals) {
  Report report;
  report.Add("requests", totals.requests);
  report.Add("failed_requests", totals.failedRequests);
  report.Add("received", totals.received);
  report.Add("answered", totals.answered);
  report.Add("no_answer_due", totals.noAnswerDue);
  report.Add("answered_instead", totals.answeredInstead);
  report.Add("late", totals.late);
  report.Add("lost", totals.lost);
  report.Add("in_flight", totals.inFlight);
  report.Add("adds_up", totals.AddsUp());
  return report;
}

Report DecisionsReport(const std::array<std::uint64_t, kMostDecision + 1>& decisions) {
  Report report;
  for (std::size_t decision = kLeastDecision; decision < decisions.size(); ++decision) {
    if (decisions[decision] > 0) report.Add(std::to_string(decision), decisions[decision]);
  }
  return report;
}

Report UnjudgedReport(const EmulatorTotals& totals) {
  Report report;
  for (std::size_t index = 0; index < kUnjudgedCauses; ++index) {
    if (totals.unjudged[index] == 0) continue;
    report.Add(std::string(UnjudgedCauseName(static_cast<UnjudgedCause>(index))), totals.unjudged[index]);
  }
  return report;
}

Report LatencyReport(const LatencySummary& latency) {
  Report report;
  report.Add("count", latency.count);
  report.Add("p50_us", Microseconds(latency.p50));
  report.Add("p95_us", Microseconds(latency.p95));
  report.Add("p99_us", Microseconds(latency.p99));
  report.Add("max_us", Microseconds(latency.max));
  return report;
}

Report LogReport(const LogTotals& log) {
  Report report;
  report.Add("alerts", log.Of(Severity::kAlert));
  report.Add("problems", log.Of(Severity::kProblem));
  report.Add("warnings", log.Of(Severity::kWarning));
  report.Add("notices", log.Of(Severity::kNotice));
  report.Add("events", log.Of(Severity::kEvent));
  report.Add("details", log.Of(Severity::kDetail));
  report.Add("lines_written", log.written);
  report.Add("lines_dropped", log.dropped);
  return report;
}

template <typename Value>
void AddIfTold(Report& report, const char* name, const std::optional<Value>& value) {
  if (value) report.Add(name, *value);
}

std::vector<std::string> Paths(const std::vector<MonitoredObject>& objects) {
  std::vector<std::string> paths;
  for (const MonitoredObject& object : objects) paths.push_back(object.path);
  return paths;
}

Report MonitoredReport(const MonitoredSet& monitored) {
  Report report;
  report.Add("commits", monitored.commits);
  report.Add("committed", Paths(monitored.committed));
  report.Add("pending", Paths(monitored.pending));
  return report;
}

std::vector<std::string> ItemTexts(const NetControlItems& items) {
  std::vector<std::string> texts;
  for (const NetControlItem& item : items) {
    texts.push_back(HexText(item.opaque) + " " + std::to_string(item.value));
  }
  return texts;
}

// How much the driver was told; DriverReport has all of it.
Report BelievedReport(const EmulatorState& driver) {
  Report report;
  for (std::size_t index = 0; index < driver.monitored.size(); ++index) {
    report.Add("monitored_type" + std::to_string(index + 1), driver.monitored[index].committed.size());
  }
  report.Add("net_control_mode", driver.netControlMode);
  for (std::size_t index = 0; index < driver.netControlItems.size(); ++index) {
    report.Add("net_control_list" + std::to_string(index + 1), driver.netControlItems[index].size());
  }
  report.Add("system_processes", driver.systemProcesses.size());
  report.Add("config_block_bytes", driver.configBlock ? driver.configBlock->size() : 0);
  report.Add("dumps", driver.dumps);
  return report;
}

}  // namespace

bool IsFine(const SummaryFacts& facts) {
  return facts.totals.AddsUp() && facts.driver.protocolViolations == 0 &&
         (!facts.filterPort || facts.filterPort->AddsUp());
}

Report SummaryReport(const SummaryFacts& facts) {
  Report report;
  report.Add("fine", IsFine(facts));
  report.Add("running_seconds", std::chrono::duration<double>(facts.running).count());

  Report connections;
  if (facts.filterPort) {
    connections.Add("opened", facts.filterPort->connects);
    connections.Add("refused", facts.filterPort->refusedConnects);
  } else {
    connections.Add("opened", facts.driver.connects);
    connections.Add("refused", facts.driver.refusedConnects);
    connections.Add("connected", facts.driver.connected);
  }
  connections.Add("version_reports", facts.version.reports);
  connections.Add("driver_version", facts.version.version);
  connections.Add("policy_reads", facts.policyReads);
  connections.Add("policy_reminders", facts.policyReminders);
  connections.Add("registered_interfaces", facts.registered.size());
  report.Add("connections", std::move(connections));

  if (facts.filterPort) {
    report.Add("driver_port", DriverPortReport(*facts.filterPort));
    report.Add("decisions", DecisionsReport(facts.decisions));
  } else {
    report.Add("driver_was_told", BelievedReport(facts.believed));
    report.Add("notifications", NotificationsReport(facts.totals));
    report.Add("codes", CountsReport(facts.totals.byCode));
    report.Add("decisions", DecisionsReport(facts.decisions));
    report.Add("verdicts", CountsReport(facts.totals.byVerdict));
    report.Add("unjudged", UnjudgedReport(facts.totals));
    report.Add("latency", LatencyReport(facts.totals.latency));
  }
  if (facts.totals.kernelEvents > 0) {
    Report kernel;
    kernel.Add("events", facts.totals.kernelEvents);
    kernel.Add("allowed", facts.totals.kernelAllowed);
    kernel.Add("refused", facts.totals.kernelRefused);
    report.Add("kernel", std::move(kernel));
  }
  report.Add("log", LogReport(facts.log));
  report.Add("protocol_violations", facts.driver.protocolViolations);
  if (!facts.driver.violationTexts.empty()) report.Add("violations", facts.driver.violationTexts);
  return report;
}

Report DriverReport(const EmulatorState& driver) {
  Report report;
  report.Add("connected", driver.connected);
  report.Add("connects", driver.connects);
  report.Add("refused_connects", driver.refusedConnects);
  report.Add("client_type", driver.clientType);
  report.Add("port_value", driver.portValue);
  report.Add("requests", CountsReport(driver.requests));
  for (std::size_t index = 0; index < driver.monitored.size(); ++index) {
    report.Add("monitored_type" + std::to_string(index + 1), MonitoredReport(driver.monitored[index]));
  }
  report.Add("net_control_mode", driver.netControlMode);
  for (std::size_t index = 0; index < driver.netControlItems.size(); ++index) {
    report.Add("net_control_list" + std::to_string(index + 1), ItemTexts(driver.netControlItems[index]));
  }
  AddIfTold(report, "grpm_switch", driver.grpmSwitch);
  AddIfTold(report, "grsp_switch", driver.grspSwitch);
  AddIfTold(report, "grdto_value", driver.grdtoValue);
  AddIfTold(report, "grhara_off", driver.grharaOff);
  if (driver.spspSwitches) {
    Report spsp;
    for (std::size_t index = 0; index < driver.spspSwitches->size(); ++index) {
      spsp.Add("switch" + std::to_string(index + 1), (*driver.spspSwitches)[index]);
    }
    report.Add("spsp_switches", std::move(spsp));
  }
  Report processes;
  for (const auto& [kind, processId] : driver.systemProcesses) processes.Add(std::to_string(kind), processId);
  report.Add("system_processes", std::move(processes));
  if (driver.configBlock) report.Add("config_block", HexText(*driver.configBlock));
  report.Add("dumps", driver.dumps);
  report.Add("versions_asked", driver.versionsAsked);
  report.Add("protocol_violations", driver.protocolViolations);
  report.Add("violations", driver.violationTexts);
  return report;
}

}  // namespace fenlux::refhost
