// The `run` command: starts a host, serves it until it has to stop, and prints the summary.
#include <cstdio>
#include <future>
#include <iostream>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <thread>
#include <utility>

#include "refhost/app/commands/commands.h"
#include "refhost/app/control/control_channel.h"
#include "refhost/app/exit_codes.h"
#include "refhost/app/platform/module_loader.h"
#include "refhost/app/platform/process_end.h"
#include "refhost/app/platform/signals.h"
#include "refhost/app/reference_host.h"
#include "refhost/app/security/file_trust.h"
#include "refhost/app/security/privileges.h"
#include "refhost/base/config/config_reader.h"
#include "refhost/services/log/log_file.h"

namespace fenlux::refhost {
namespace {

using Clock = std::chrono::steady_clock;

// How often the loop polls while it waits for signals.
constexpr std::chrono::milliseconds kPollInterval{100};

// Serves the control channel on one thread, so that operations never overlap: those of network control must not.
class ControlThread {
 public:
  ControlThread(ReferenceHost& host, std::shared_ptr<ControlListener> opened) : listener(std::move(opened)) {
    std::packaged_task<void()> serve([listener = listener, &host] {
      listener->Serve({.answer = [&host](const std::string& request) { return AnswerRequest(host, request); },
                       .refuse = [](const std::string& reason) { return EncodeRefusal(reason); }});
    });
    finished = serve.get_future();
    std::thread(std::move(serve)).detach();
  }

  // Accepts no more requests and gives the current one a short time to finish.
  void Stop() {
    listener->Stop();
    finished.wait_for(std::chrono::seconds(2));
    listener.reset();
  }

 private:
  std::shared_ptr<ControlListener> listener;
  std::future<void> finished;
};

// The control channel, or why there is none.
struct ControlOpening {
  std::shared_ptr<ControlListener> listener;
  std::string reason;  // empty if it was not asked for
};

// At the default place, other users may be able to prevent the channel; that must not stop a host. Nor must a host end
// up without a channel because it was started twice, or because its own setting is wrong.
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

// Why root must not use the files that a run depends on; empty if it may.
std::string UntrustedFile(const RunOptions& options, const HostConfig& config) {
  if (options.insecurePermissions) return {};
  const boost::filesystem::path& module = options.module.empty() ? config.start.moduleLibrary : options.module;
  for (const auto& file : {options.config, config.emulator.scenarioFile,
                           module.empty() ? DefaultModuleLibrary() : module, config.start.log.file}) {
    std::string reason = file.empty() ? std::string() : WhyUntrusted(file);
    if (!reason.empty()) return reason;
  }
  return {};
}

// Null if no file is configured.
LogFile OpenLog(const RunOptions& options, const HostConfig& config) {
  const boost::filesystem::path& file = config.start.log.file;
  if (file.empty()) return nullptr;
  LogFile opened = OpenLogFile(file);
  const std::string reason = options.insecurePermissions ? std::string() : WhyUntrusted(file, opened.get());
  if (!reason.empty()) throw std::runtime_error(reason);
  return opened;
}

void PrintSummary(const SummaryFacts& facts, bool json) {
  const Report report = SummaryReport(facts);
  if (json) {
    Report object = Report::object();
    object["summary"] = report;
    std::cout << JsonText(object) << std::endl;
  } else {
    std::cout << "summary\n" << AlignedText(report) << std::flush;
  }
}

// Returns when the run has to stop.
void Serve(ReferenceHost& host, const RunOptions& options, bool stopAtEnd) {
  const Clock::time_point startTime = Clock::now();
  for (;;) {
    switch (WaitForSignal(kPollInterval)) {
      case HostSignal::kStop:
        return;
      case HostSignal::kReload:
        host.Reload();
        break;
      case HostSignal::kSummary:
        PrintSummary(host.Facts(), options.json);
        break;
      case HostSignal::kNone:
        break;
    }
    if (options.duration && Clock::now() - startTime >= *options.duration) return;
    if (stopAtEnd && host.ScenarioFinished()) return;
    host.Poll();
  }
}

int Fail(int code, const std::string& text) {
  std::cerr << "fenlux-host: " << text << std::endl;
  return code;
}

// The module's workers are detached and still use the host, so the process ends without destroying it. Everything that
// matters outside has been stopped, drained and flushed.
[[noreturn]] void LeaveProcess(int code) {
  std::cout << std::flush;
  std::fflush(nullptr);
  EndProcess(code);
}

}  // namespace

int RunHost(const RunOptions& options) {
  BlockSignals();
  ConfigErrors errors;
  HostConfig config = LoadHostConfig(options.config, errors);
  if (!errors.Empty()) {
    std::cerr << errors.Text() << std::flush;
    return kExitUsage;
  }
  config.start.log.json = options.json;
  config.start.insecurePermissions = options.insecurePermissions;
  ControlSettings control = config.start.control;
  if (!options.socket.empty()) {
    if (!control.enabled) return Fail(kExitUsage, "--socket conflicts with [control] enabled = false");
    control.socket = options.socket;
  }
  if (!options.record.empty()) config.start.recording.file = options.record;
  const bool stopAtEnd = config.start.stopAtEnd;
  if (const std::string reason = UntrustedFile(options, config); !reason.empty()) return Fail(kExitUsage, reason);

  std::unique_ptr<ReferenceHost> host;
  std::unique_ptr<ControlThread> controlThread;
  try {
    // These need the privileges of the start, and no thread may run when those are given up.
    LogFile logFile = OpenLog(options, config);
    ControlOpening opening = OpenControl(control);
    LimitPrivileges(config.emulator.source == EventSourceKind::kFanotify);
    host = std::make_unique<ReferenceHost>(options.config, std::move(config), std::move(logFile));
    controlThread = ServeControl(*host, std::move(opening));
  } catch (const std::runtime_error& error) {
    return Fail(kExitUsage, error.what());
  }

  int code = kExitSuccess;
  try {
    host->Start(options.module);
    Serve(*host, options, stopAtEnd);
  } catch (const ModuleError& error) {
    code = Fail(kExitModule, error.what());
  }
  if (controlThread != nullptr) controlThread->Stop();
  const EmulatorState stateBeforeStop = host->DriverState();
  host->Stop();
  if (code == kExitSuccess) {
    SummaryFacts facts = host->Facts();
    facts.stateBeforeStop = stateBeforeStop;
    PrintSummary(facts, options.json);
    if (!IsFine(facts)) code = kExitViolation;
  }
  LeaveProcess(code);
}

}  // namespace fenlux::refhost
