// Builds the report of the host's state, group by group.
#include "refhost/app/status/status_report.h"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <nlohmann/json.hpp>
#include <optional>
#include <utility>

#include "fenlux/version.h"
#include "refhost/app/recording/capture_settings.h"

namespace fenlux::refhost {
namespace {

std::string TextOf(const std::optional<std::chrono::system_clock::time_point>& time) {
  return time ? TimeText(*time) : std::string();
}

// A real driver's port does not report times and reasons.
Report ConnectionReport(const StatusFacts& facts) {
  Report report = Report::object();
  report["ready"] = facts.ready;
  if (facts.summary.filterPort) {
    report["opened"] = facts.summary.filterPort->connects;
    report["refused"] = facts.summary.filterPort->refusedConnects;
    return report;
  }
  const EmulatorState& driver = facts.summary.driver;
  report["connected"] = driver.connected;
  if (driver.connected) report["since"] = TextOf(driver.connectionOpened);
  report["opened"] = driver.connects;
  report["refused"] = driver.refusedConnects;
  if (driver.refusedConnects > 0) report["last_refusal"] = driver.refusalReason;
  if (driver.connectionEnded) {
    report["last_end"] = TextOf(driver.connectionEnded);
    report["last_end_reason"] = driver.endReason;
  }
  return report;
}

std::vector<std::string> DirectoryTexts(const std::vector<PolicyDirectory>& directories) {
  std::vector<std::string> texts;
  texts.reserve(directories.size());
  for (const PolicyDirectory& directory : directories) {
    texts.push_back(directory.missing.empty() ? directory.path + ": watched"
                                              : fmt::format("{}: not watched: {}", directory.path, directory.missing));
  }
  return texts;
}

std::vector<std::string> PolicyTexts(const StatusFacts& facts) {
  if (!facts.hasPolicy) return {"no policy: the driver keeps what it has"};
  return DirectoryTexts(facts.policy);
}

Report RulesReport(const StatusFacts& facts) {
  Report report = Report::object();
  report["file"] = facts.configuration.string();
  report["loaded"] = TimeText(facts.configurationLoaded);
  if (facts.summary.rules != nullptr) {
    report["number"] = facts.summary.rules->rules.ordered.size();
    report["enforced"] = facts.summary.rules->rules.enforced;
  }
  report["last_reload_refused"] = facts.lastReloadRefused;
  return report;
}

Report QueuesReport(const StatusFacts& facts) {
  Report report = Report::object();
  report["log_lines_waiting"] = facts.summary.log.waiting;
  report["log_lines_capacity"] = facts.logQueueLines;
  report["log_lines_lost"] = facts.summary.log.dropped;
  report["notifications_in_flight"] =
      facts.summary.filterPort ? facts.summary.filterPort->inFlight : facts.summary.totals.inFlight;
  report["recorded_messages_lost"] = facts.summary.recording.dropped;
  return report;
}

Report LatencyReport(const StatusFacts& facts) {
  Report report = Report::object();
  for (std::size_t index = 0; index < kHistoryPeriods.size(); ++index) {
    const LatencySummary& latency = facts.history[index].latency;
    Report period = Report::object();
    period["count"] = latency.count;
    period["p50_us"] = Microseconds(latency.p50);
    period["p99_us"] = Microseconds(latency.p99);
    period["max_us"] = Microseconds(latency.max);
    report[std::string(kHistoryPeriods[index].name)] = std::move(period);
  }
  return report;
}

}  // namespace

std::string TimeText(std::chrono::system_clock::time_point time) {
  return fmt::format("{:%Y-%m-%dT%H:%M:%SZ}", fmt::gmtime(std::chrono::system_clock::to_time_t(time)));
}

Report StatusReport(const StatusFacts& facts) {
  const SummaryFacts& summary = facts.summary;
  Report report = Report::object();
  report["host_version"] = kPackageVersionText;
  report["module_version"] = facts.moduleVersion;
  report["pid"] = facts.processId;
  report["started"] = TimeText(facts.started);
  report["running_seconds"] = RoundToTenths(std::chrono::duration<double>(summary.running).count());
  report["configuration"] = facts.configuration.string();
  report["reloads"] = facts.reloads;
  report["refused_reloads"] = facts.refusedReloads;
  report["module"] = facts.moduleLibrary.string();
  report["ready"] = facts.ready;
  report["connections"] = summary.filterPort ? summary.filterPort->connects : summary.driver.connects;
  report["connection"] = ConnectionReport(facts);
  report["driver_version"] = summary.version.version;
  report["policy"] = PolicyTexts(facts);
  if (!facts.otherDirectories.empty()) report["other_directories"] = DirectoryTexts(facts.otherDirectories);
  report["policy_reads"] = summary.policyReads;
  report["policy_reminders"] = summary.policyNotifications;
  report["rules"] = RulesReport(facts);
  std::vector<std::string> interfaces;
  for (const RegisteredInterface& entry : summary.registered) {
    interfaces.push_back(
        fmt::format("{}, port value {}, values {} and {}", entry.name, entry.portValue, entry.value1, entry.value2));
  }
  report["registered_interfaces"] = std::move(interfaces);
  report["net_objects_held"] = facts.heldNetObjects;
  report["cached_processes"] = facts.cachedProcesses;
  report["delivered"] = summary.filterPort ? summary.filterPort->received : summary.totals.delivered;
  if (!summary.filterPort) {
    report["unjudged"] = UnjudgedReport(summary.totals);
    report["unjudged_refused"] = summary.totals.kernelRefusedUnjudged;
    report["unjudged_setting"] = UnjudgedPolicyName(summary.unjudgedPolicy);
    report["latency"] = LatencyReport(facts);
  }
  report["queues"] = QueuesReport(facts);
  report["alerts"] = summary.log.Of(Severity::kAlert);
  report["protocol_violations"] = summary.driver.protocolViolations;
  report["recording"] = RecordingReport(summary.recording);
  return report;
}

}  // namespace fenlux::refhost
