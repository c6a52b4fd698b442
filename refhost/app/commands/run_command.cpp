// The `run` command: starts a host, serves it until it has to stop, and prints the summary.
#include <cstdio>
#include <future>
#include <iostream>
#include <memory>
#include <nlohmann/json.hpp>
#include <thread>

#include "refhost/app/commands/commands.h"
#include "refhost/app/control/control_channel.h"
#include "refhost/app/exit_codes.h"
#include "refhost/app/platform/process_end.h"
#include "refhost/app/platform/signals.h"
#include "refhost/app/reference_host.h"
#include "refhost/base/config/config_reader.h"

namespace fenlux::refhost {
namespace {

using Clock = std::chrono::steady_clock;

// How often the loop polls while it waits for signals.
constexpr std::chrono::milliseconds kPollInterval{100};

// Serves the control channel on one thread, so that operations never overlap: those of network control must not.
class ControlThread {
 public:
  ControlThread(ReferenceHost& host, const boost::filesystem::path& path)
      : listener(std::make_shared<ControlListener>(path)) {
    std::packaged_task<void()> serve([listener = listener, &host] {
      listener->Serve([&host](const std::string& request) { return AnswerRequest(host, request); });
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
  ControlSettings control = config.start.control;
  if (!options.socket.empty()) {
    if (!control.enabled) return Fail(kExitUsage, "--socket conflicts with [control] enabled = false");
    control.socket = options.socket;
  }
  const bool stopAtEnd = config.start.stopAtEnd;

  std::unique_ptr<ReferenceHost> host;
  std::unique_ptr<ControlThread> controlThread;
  try {
    host = std::make_unique<ReferenceHost>(options.config, std::move(config));
    if (control.enabled) {
      const auto path = control.socket.empty() ? DefaultControlPath() : control.socket;
      controlThread = std::make_unique<ControlThread>(*host, path);
    }
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
