// The life of a host: made, started, tended, stopped, summed up.
#include <cstdio>
#include <future>
#include <iostream>
#include <memory>
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

// How soon a signal's wait ends to look after everything else.
constexpr std::chrono::milliseconds kLookEvery{100};

// The control channel's thread. Operations run one after the other on it: those of network control may not overlap.
class ControlThread {
 public:
  ControlThread(ReferenceHost& host, const boost::filesystem::path& place)
      : listener(std::make_shared<ControlListener>(place)) {
    std::packaged_task<void()> serve([listener = listener, &host] {
      listener->Serve([&host](const std::string& request) { return AnswerRequest(host, request); });
    });
    ended = serve.get_future();
    std::thread(std::move(serve)).detach();
  }

  // Takes no more requests, and waits a little for one that is being carried out.
  void Stop() {
    listener->Stop();
    ended.wait_for(std::chrono::seconds(2));
    listener.reset();
  }

 private:
  std::shared_ptr<ControlListener> listener;
  std::future<void> ended;
};

void PrintSummary(const SummaryFacts& facts, bool json) {
  const Report report = SummaryReport(facts);
  std::cout << (json ? "{\"summary\":" + report.Json() + "}\n" : "summary\n" + report.Text()) << std::flush;
}

// Until something ends the run.
void Serve(ReferenceHost& host, const RunOptions& options, bool stopAtEnd) {
  const Clock::time_point begun = Clock::now();
  for (;;) {
    switch (WaitForSignal(kLookEvery)) {
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
    if (options.duration && Clock::now() - begun >= *options.duration) return;
    if (stopAtEnd && host.ScenarioFinished()) return;
    host.Tend();
  }
}

int Fail(int code, const std::string& text) {
  std::cerr << "fenlux-host: " << text << std::endl;
  return code;
}

// The module's workers are detached and never end, so the process is left without unwinding what they still use:
// everything that has to reach the outside was stopped, drained and flushed before.
[[noreturn]] void LeaveProcess(int code) {
  std::cout << std::flush;
  std::fflush(nullptr);
  EndProcess(code);
}

}  // namespace

int RunHost(const RunOptions& options) {
  HoldSignals();
  ConfigErrors errors;
  HostConfig config = LoadHostConfig(options.config, errors);
  if (!errors.Empty()) {
    std::cerr << errors.Text() << std::flush;
    return kExitUsage;
  }
  config.start.log.json = options.json;
  const ControlSettings control = config.start.control;
  const bool stopAtEnd = config.start.stopAtEnd;

  std::unique_ptr<ReferenceHost> host;
  std::unique_ptr<ControlThread> controlThread;
  try {
    host = std::make_unique<ReferenceHost>(options.config, std::move(config));
    if (control.enabled) {
      const auto place = control.socket.empty() ? DefaultControlPlace() : control.socket;
      controlThread = std::make_unique<ControlThread>(*host, place);
    }
  } catch (const std::runtime_error& error) {
    return Fail(kExitUsage, error.what());
  }

  int code = kExitFine;
  try {
    host->Start(options.module);
    Serve(*host, options, stopAtEnd);
  } catch (const ModuleError& error) {
    code = Fail(kExitModule, error.what());
  }
  if (controlThread != nullptr) controlThread->Stop();
  const EmulatorState believed = host->DriverState();
  host->Stop();
  if (code == kExitFine) {
    SummaryFacts facts = host->Facts();
    facts.believed = believed;
    PrintSummary(facts, options.json);
    if (!IsFine(facts)) code = kExitViolation;
  }
  LeaveProcess(code);
}

}  // namespace fenlux::refhost
