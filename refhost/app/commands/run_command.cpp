// The `run` command: starts a host, runs it until it has to stop, and prints the summary.
#include <atomic>
#include <future>
#include <iostream>
#include <memory>
#include <new>
#include <nlohmann/json.hpp>
#include <string>
#include <utility>

#include "refhost/app/bounded_output.h"
#include "refhost/app/commands/commands.h"
#include "refhost/app/commands/host_polling.h"
#include "refhost/app/control/control_channel.h"
#include "refhost/app/exit_codes.h"
#include "refhost/app/metrics/host_metrics.h"
#include "refhost/app/metrics/metrics_server.h"
#include "refhost/app/platform/process_end.h"
#include "refhost/app/platform/signals.h"
#include "refhost/app/problem_output.h"
#include "refhost/app/reference_host.h"
#include "refhost/app/security/privileges.h"
#include "refhost/app/security/run_files.h"
#include "refhost/app/security/trusted_log.h"
#include "refhost/app/service/service_reports.h"
#include "refhost/app/stop_deadline.h"
#include "refhost/base/config/config_reader.h"
#include "refhost/base/start_thread.h"

namespace fenlux::refhost {
namespace {

using Clock = std::chrono::steady_clock;

// For an error before the stop begins.
constexpr std::chrono::milliseconds kFailureTimeout = StopTimeouts(kDefaultStopTimeout).outputs;

// Serves the control channel on one thread, because operations of network control must not overlap.
class ControlThread {
 public:
  ControlThread(ReferenceHost& host, std::shared_ptr<ControlListener> opened) : listener(std::move(opened)) {
    std::packaged_task<void()> serve([listener = listener, &host] {
      listener->Serve({.answer = [&host](const std::string& request) { return AnswerRequest(host, request); },
                       .refuse = [](const std::string& reason) { return EncodeRefusal(reason); }});
    });
    finished = serve.get_future();
    StartDetachedThread("the control channel", std::move(serve));
  }

  // Accepts no more requests and gives the current one a short time to finish.
  void Stop(std::chrono::milliseconds limit) {
    listener->Stop();
    finished.wait_for(limit);
    listener.reset();
  }

 private:
  std::shared_ptr<ControlListener> listener;
  std::future<void> finished;
};

// The control channel, or why there is none.
struct ControlOpening {
  std::shared_ptr<ControlListener> listener;
  std::string reason;  // empty if there is a channel, or none is configured
};

// Other users may be able to block the default path; that must not stop a host. But a host that was started twice, or
// whose own setting is wrong, must fail rather than run without a channel.
ControlOpening OpenControl(const ControlSettings& settings) {
  if (!settings.enabled) return {};
  if (!settings.socket.empty()) return {std::make_shared<ControlListener>(settings.socket), {}};
  try {
    return {std::make_shared<ControlListener>(DefaultControlPath()), {}};
  } catch (const ControlChannelBusy&) {
    throw;
  } catch (const ControlChannelError& error) {
    return {nullptr, error.what()};
  }
}

// Null if there is no channel.
std::unique_ptr<ControlThread> ServeControl(ReferenceHost& host, ControlOpening opening) {
  if (opening.listener != nullptr) return std::make_unique<ControlThread>(host, std::move(opening.listener));
  if (!opening.reason.empty()) {
    host.Log(Severity::kWarning,
             "[host] running without a control socket, so `fenlux-host ctl` cannot reach this host: " + opening.reason +
                 ". To have one, name it with --socket or [control] socket");
  }
  return nullptr;
}

// Null if metrics are not served.
std::unique_ptr<MetricsServer> OpenMetrics(const MetricsSettings& settings) {
  return settings.address.empty() ? nullptr : std::make_unique<MetricsServer>(settings);
}

void ServeMetrics(ReferenceHost& host, MetricsServer& server) {
  server.Start([&host] { return MetricsText(host.Status()); });
  host.Log(Severity::kEvent, "[host] metrics at " + server.Url());
}

// Runs a step that a run can do without. A step that runs out of memory is abandoned.
template <typename Step>
void IfThereIsMemory(const Step& step) {
  try {
    step();
  } catch (const std::bad_alloc&) {
  }
}

void ReloadHost(ReferenceHost& host) {
  try {
    host.Reload();
  } catch (const std::runtime_error& error) {
    host.Log(Severity::kProblem, std::string("[host] configuration not reloaded: ") + error.what());
  }
}

std::string SummaryText(const SummaryFacts& facts, bool json) {
  const Report report = SummaryReport(facts);
  if (!json) return "summary\n" + AlignedText(report);
  Report object = Report::object();
  object["summary"] = report;
  return JsonText(object) + "\n";
}

void HandleSignal(HostSignal received, ReferenceHost& host, const RunOptions& options, BoundedOutput& out) {
  if (received != HostSignal::kSummary || out.Write(SummaryText(host.Facts(), options.json))) return;
  host.Log(Severity::kWarning, "[host] nobody reads standard output; dropping a summary");
}

// Why a run stops.
enum class RunEnd { kSignal, kDuration, kScenario };

// Starts the host's polling and returns when the run has to stop.
RunEnd Serve(ReferenceHost& host, const RunOptions& options, bool stopAtEnd, const ServiceManager& manager,
             BoundedOutput& out) {
  static std::atomic<bool> reloadRequested{false};  // static: polling continues until the process ends
  StartPolling([&host] {
    if (reloadRequested.exchange(false)) ReloadHost(host);
    host.Poll();
  });
  manager.Ready();
  const Clock::time_point startTime = Clock::now();
  ServiceReports reports(manager, [&host] { return ServiceStatus(host); });
  for (;;) {
    const HostSignal received = WaitForSignal(kPollInterval);
    if (received == HostSignal::kStop) return RunEnd::kSignal;
    if (received == HostSignal::kReload) reloadRequested = true;
    IfThereIsMemory([&] {
      HandleSignal(received, host, options, out);
      reports.Poll(Clock::now());
      host.KeepHistory();
    });
    if (options.duration && Clock::now() - startTime >= *options.duration) return RunEnd::kDuration;
    if (stopAtEnd && host.ScenarioFinished()) return RunEnd::kScenario;
  }
}

// Writes the lines to standard error and returns the code. If standard error is stuck, ends the process here: the
// signals that would end it are blocked.
int FailWithin(std::chrono::milliseconds timeout, int code, const std::string& text) {
  try {
    BoundedOutput error(std::cerr, "standard error");
    error.Write(text);
    if (!error.Flush(timeout)) EndProcess(code);
  } catch (const std::exception&) {  // no thread, no memory
    std::cerr << text << std::flush;
  }
  return code;
}

int FailWithin(std::chrono::milliseconds timeout, int code, const RunOptions& options, const std::string& message) {
  return FailWithin(timeout, code, ProblemLines("fenlux-host: " + message, options.json));
}

int Fail(int code, const RunOptions& options, const std::string& message) {
  return FailWithin(kFailureTimeout, code, options, message);
}

}  // namespace

int RunHost(const RunOptions& options) {
  ConfigErrors errors;
  HostConfig config = LoadHostConfig(options.config, errors);
  BlockSignals();  // not before: if the file system hangs during the start, a signal must end it
  if (!errors.Empty()) {
    return FailWithin(kFailureTimeout, kExitUsage, ProblemLines(errors, options.json));
  }
  config.start.log.json = options.json;
  config.start.insecurePermissions = options.insecurePermissions;
  ControlSettings control = config.start.control;
  if (!options.socket.empty()) {
    if (!control.enabled) return Fail(kExitUsage, options, "--socket conflicts with [control] enabled = false");
    control.socket = options.socket;
  }
  if (!options.record.empty()) config.start.recording.file = options.record;
  config.start.log.colors = options.colors;
  const bool stopAtEnd = config.start.stopAtEnd;
  const StopTimeouts timeouts(config.start.stopTimeout);
  const ServiceManager manager;
  if (!options.insecurePermissions) {
    const std::string reason = UntrustedFile(options.config, options.module, config);
    if (!reason.empty()) return Fail(kExitUsage, options, reason);
  }

  std::unique_ptr<ReferenceHost> host;
  std::unique_ptr<ControlThread> controlThread;
  std::unique_ptr<MetricsServer> metrics;
  std::unique_ptr<BoundedOutput> out;
  try {
    // These need the initial privileges, and no other thread may be running when those are dropped.
    LogFile logFile = OpenTrustedLog(config.start.log.file, options.insecurePermissions);
    ControlOpening opening = OpenControl(control);
    metrics = OpenMetrics(config.start.metrics);
    LimitPrivileges(config.emulator.source == EventSourceKind::kFanotify);
    host = std::make_unique<ReferenceHost>(options.config, std::move(config), std::move(logFile));
    host->ObserveReloads([&manager](bool begins) { begins ? manager.Reloading() : manager.Ready(); });
    out = std::make_unique<BoundedOutput>(std::cout, "standard output");
    controlThread = ServeControl(*host, std::move(opening));
    if (metrics != nullptr) ServeMetrics(*host, *metrics);
  } catch (const std::runtime_error& error) {
    return Fail(kExitUsage, options, error.what());
  }

  int code = kExitSuccess;
  RunEnd end = RunEnd::kSignal;
  try {
    host->Start(options.module);
    end = Serve(*host, options, stopAtEnd, manager, *out);
  } catch (const std::runtime_error& error) {  // the module cannot be used, or a thread is missing
    code = Fail(kExitModule, options, error.what());
  } catch (const std::bad_alloc&) {
    code = Fail(kExitNoMemory, options, kOutOfMemory);
  }
  manager.Stopping();
  const StopDeadline deadline(Clock::now(), timeouts);
  try {
    if (controlThread != nullptr) controlThread->Stop(timeouts.control);
    if (metrics != nullptr) metrics->Stop();
    const EmulatorState stateBeforeStop = host->DriverState();
    host->Stop();
    host->DrainLog(deadline.LogTimeout(Clock::now()));
    if (code == kExitSuccess) {
      SummaryFacts facts = host->Facts();
      facts.stateBeforeStop = stateBeforeStop;
      out->Write(SummaryText(facts, options.json));
      if (!TotalsProblems(facts).empty() || (NeverConnected(facts) && end == RunEnd::kDuration)) code = kExitViolation;
    }
  } catch (const std::bad_alloc&) {
    code = FailWithin(deadline.OutputTimeout(Clock::now()), kExitNoMemory, options, kOutOfMemory);
  }
  out->Flush(deadline.OutputTimeout(Clock::now()));
  if (const std::string failure = out->Failure(); code == kExitSuccess && !failure.empty()) {
    code = FailWithin(deadline.OutputTimeout(Clock::now()), kExitOutput, options,
                      "standard output cannot be written: " + failure);
  }
  // The module's workers are detached and still use the host, so the process ends without destroying it. Everything
  // visible from outside has been stopped, drained and flushed; a stuck output is abandoned.
  EndProcess(code);
}

}  // namespace fenlux::refhost
