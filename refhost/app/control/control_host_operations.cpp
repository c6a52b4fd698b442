// The table of the host's own operations.
#include <nlohmann/json.hpp>
#include <string>
#include <utility>
#include <vector>

#include "refhost/app/control/control_operations.h"
#include "refhost/app/decisions/explain_report.h"
#include "refhost/app/decisions/rules_report.h"
#include "refhost/app/metrics/host_metrics.h"
#include "refhost/app/recording/capture_settings.h"
#include "refhost/app/recording/port_recording.h"
#include "refhost/app/reference_host.h"
#include "refhost/app/status/health.h"
#include "refhost/app/status/status_report.h"
#include "refhost/app/watch/watch_operation.h"

namespace fenlux::refhost {
namespace {

using Host = ModuleOwner;
using Arguments = ControlArguments;

ReferenceHost& WholeHost(Host& owner) { return dynamic_cast<ReferenceHost&>(owner); }

Report RestartReport(const std::vector<std::string>& settings) {
  Report report = Report::object();
  if (!settings.empty()) report["restart_needed_for"] = settings;
  return report;
}

// In the order in which help shows them.
const ControlOperation kHostOperations[] = {
    {"status",
     "Show the state of the host and its connection",
     {},
     [](Host& host, const Arguments&) { return StatusReport(WholeHost(host).Status()); },
     true},
    {"health",
     "Show in one line whether the host works as it should, and in the exit code: 0, 6 (degraded) or 7 (no host)",
     {},
     [](Host& host, const Arguments&) { return HealthReport(WholeHost(host).Status()); },
     true,
     HealthText,
     HealthExitCode},
    {"watch",
     "Show judged events as they happen, until Ctrl+C",
     {{"refused", ArgumentKind::kFlag, "only events whose operation was refused, or would have been"},
      {"path", ArgumentKind::kOption, "only events with a path that matches this pattern"},
      {"process", ArgumentKind::kOption, "only events of programs whose path matches this pattern"},
      {"code", ArgumentKind::kIntegerOption, "only notifications with this code"}},
     [](Host& host, const Arguments& arguments) { return WatchReport(WholeHost(host).Events(), arguments); },
     true,
     [](const Report&) { return std::string(); }},  // `ctl` shows the events itself
    {"metrics",
     "Show the metrics in Prometheus's text format, as [metrics] listen serves them (Linux only)",
     {},
     [](Host& host, const Arguments&) {
       Report report = Report::object();
       report["metrics"] = MetricsText(WholeHost(host).Status());
       return report;
     },
     true,
     [](const Report& result) { return result.at("metrics").get<std::string>(); }},
    {"summary",
     "Show the counts so far, as at the end of a run",
     {},
     [](Host& host, const Arguments&) { return SummaryReport(WholeHost(host).Facts()); },
     true},
    {"driver",
     "Show the state of the emulated driver",
     {},
     [](Host& host, const Arguments&) { return DriverReport(WholeHost(host).DriverState()); },
     true},
    {"rules",
     "Show the rules in force, how often each decided, and when last",
     {},
     [](Host& host, const Arguments&) { return RulesReport(*WholeHost(host).RulesNow()); },
     true,
     &RulesText},
    {"explain",
     "Show which rule in force would decide about an event, and why not the earlier ones",
     {{"path", ArgumentKind::kRequiredOption, "path of the event"},
      {"process", ArgumentKind::kOption, "path of the program that performs the operation"},
      {"pid", ArgumentKind::kIntegerOption, "process that runs the program"},
      {"code", ArgumentKind::kIntegerOption,
       "notification code; 4097, a file that is opened, if neither it nor an event is given"},
      {"event", ArgumentKind::kOption, "name of an event, as in rules"}},
     [](Host& host, const Arguments& arguments) {
       const auto option = [&](const char* name) { return OptionArgument(arguments, name); };
       try {
         return ExplainReport(WholeHost(host).RulesNow()->rules, WholeHost(host).Refusing(),
                              {.path = std::string(TextArgument(arguments, "path")),
                               .process = option("process"),
                               .processId = option("pid"),
                               .code = option("code"),
                               .event = option("event")});
       } catch (const ExplainError& error) {
         throw ControlRefusal(error.what());
       }
     },
     true,
     &ExplainText},
    {"reload",
     "Reload the configuration file, like SIGHUP",
     {},
     [](Host& host, const Arguments&) {
       const ReloadResult result = WholeHost(host).Reload();
       if (!result.errors.empty()) throw ControlRefusal("the configuration stays unchanged:\n" + result.errors);
       return RestartReport(result.waiting);
     },
     true},
    {"record start",
     "Record the driver's port to a file",
     {{"file", ArgumentKind::kPath, "capture to write (pcapng)"}},
     [](Host& host, const Arguments& arguments) {
       try {
         WholeHost(host).Recording().Start(std::string(TextArgument(arguments, "file")));
       } catch (const capture::RecordingError& error) {
         throw ControlRefusal(error.what());
       }
       return Report::object();
     },
     true},
    {"record stop",
     "Stop recording and show the counts",
     {},
     [](Host& host, const Arguments&) {
       if (!WholeHost(host).Recording().Status().active) throw ControlRefusal("no recording is active");
       WholeHost(host).Recording().Stop();
       return RecordingReport(WholeHost(host).Recording().Status());
     },
     true},
    {"record status",
     "Show the counts of the current or the last recording",
     {},
     [](Host& host, const Arguments&) { return RecordingReport(WholeHost(host).Recording().Status()); },
     true},
};

}  // namespace

std::span<const ControlOperation> HostOperations() { return kHostOperations; }

}  // namespace fenlux::refhost
