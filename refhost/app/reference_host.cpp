// Composition, start and stop of a host.
#include "refhost/app/reference_host.h"

#include <fmt/format.h>

#include <boost/filesystem/operations.hpp>
#include <nlohmann/json.hpp>
#include <system_error>
#include <utility>

#include "core/fenlux.h"
#include "kdi/kdi_base.h"
#include "refhost/app/decisions/decision_log.h"
#include "refhost/app/driver_parts.h"
#include "refhost/app/platform/module_loader.h"
#include "refhost/app/recording/capture_settings.h"
#include "refhost/app/recording/host_facts.h"
#include "refhost/app/recording/port_recording.h"
#include "refhost/app/stop_deadline.h"
#include "refhost/base/exception_text.h"
#include "refhost/base/start_thread.h"
#include "refhost/emulator/driver_emulator.h"
#include "refhost/services/events/event_record.h"
#include "refhost/services/host_context.h"
#include "refhost/services/utility_service.h"

namespace fenlux::refhost {

ReferenceHost::ReferenceHost(boost::filesystem::path file, HostConfig config, std::shared_ptr<std::FILE> logFile)
    : configFile(std::move(file)),
      start(config.start),
      startContent(config.content),
      programJudging(ProgramJudgingOf(config)),
      log(std::make_shared<LogService>(config.start.log, std::move(logFile))),
      recording(std::make_shared<PortRecording>(config.start.recording)),
      locale(std::make_shared<LocaleService>(std::move(config.reloadable.translations))),
      records(std::make_shared<RecordRegister>()),
      net(std::make_shared<NetService>()),
      configuration(std::make_shared<Configuration>(config.start.module, config.reloadable.module, records)),
      decisionLog(std::make_shared<DecisionLog>(log, !config.start.log.json)),
      judge(std::make_shared<Judge>(
          std::move(config.reloadable.rules),
          JudgeSettings{
              .unknownProgram = programJudging.unknownProgram,
              .refusing = RefusingDecisions(config),
              .observer =
                  [recording = recording](Decision decision, const Rule* rule, std::chrono::nanoseconds duration) {
                    recording->AddJudgement({static_cast<std::uint32_t>(decision),
                                             rule == nullptr ? std::string_view() : rule->name,
                                             std::chrono::duration_cast<std::chrono::microseconds>(duration)});
                  }})),
      unjudgedPolicy(config.emulator.unjudged),
      emulator(StartEmulator(config)),
      filterPort(MakeFilterPort(config.start.driver, log)),
      work(std::make_shared<WorkService>(
          config.start.systemImages,
          recording->Recorded([emulator = emulator, filterPort = filterPort, decisions = decisions](
                                  const std::string& portName, const std::shared_ptr<CBuf>& connectContext,
                                  std::uint32_t maxMessageSize, const NotificationHandler& handler,
                                  std::uint32_t portValue) {
            if (filterPort != nullptr) {
              return filterPort->MakePortClient(portName, connectContext, maxMessageSize,
                                                ObservedHandler(handler, decisions), portValue);
            }
            return emulator->MakePortClient(portName, connectContext, maxMessageSize, handler, portValue);
          }))),
      context(std::make_shared<HostContext>(HostServices{
          .cfg = configuration,
          .log = log,
          .locale = locale,
          .utility = std::make_shared<UtilityService>(log, config.start.module.versionFlag),
          .net = net,
          .recordService = records,
          .winWork = work,
          .arpMgmt = std::make_shared<EventRecordMaker>(),
          .cfgEx = configuration,
          .aoArp = judge,
      })),
      policyWatch({
          .isReady = [this] { return Module() != nullptr && Module()->GetDriverInteract() != nullptr; },
          .connectionStarted = [this] { return work->LastConnectionStart(); },
          .policyChanged = [this] { return configuration->LastReplaced(); },
          .policyRead = [this] { return configuration->LastPolicyRead(); },
          .notify =
              [this] {
                log->Write(Severity::kNotice, "[host] policy not read yet; notifying the module again");
                NotifyPolicyChanged();
              },
      }) {
  recording->SetFacts(HostFacts(start.module, config.reloadable.module, *work));
}

// Events may arrive immediately, so the decision log and the rules' settings must already be in place.
std::shared_ptr<DriverEmulator> ReferenceHost::StartEmulator(HostConfig& config) {
  const std::shared_ptr<const RulesInForce> inForce = judge->InForce();
  decisions->Attach(decisionLog, inForce->rules.logged);
  config.emulator.refusalsEnforced = inForce->rules.enforced;
  return MakeEmulator(config, log, decisions);
}

ReferenceHost::~ReferenceHost() = default;

void ReferenceHost::Start(const boost::filesystem::path& library) {
  boost::filesystem::path file = library.empty() ? start.moduleLibrary : library;
  if (file.empty()) file = DefaultModuleLibrary();
  {
    const MutexLock lock(moduleMutex);
    moduleLibrary = file;
  }
  try {
    ModuleLibrary(file).Init(context);
  } catch (const ModuleLoadError& error) {
    throw ModuleError(error.what());
  } catch (...) {
    throw ModuleError("the module's init failed: " + CurrentExceptionText());
  }
  if (Module() == nullptr) throw ModuleError("the module's init did not register a module");
  try {
    recording->AddCall("start-work", Report::object());
    Module()->StartWork();
  } catch (const std::system_error& error) {
    const bool noThread = error.code() == std::errc::resource_unavailable_try_again;
    throw ModuleError("the module failed to start its work: " +
                      (noThread ? ThreadFailureText("one of its workers", error.code()) : CurrentExceptionText()));
  } catch (...) {
    throw ModuleError("the module failed to start its work: " + CurrentExceptionText());
  }
}

void ReferenceHost::Stop() {
  const StopTimeouts timeouts(start.stopTimeout);
  // Clears the driver's objects. That waits for the driver, so it runs on another thread with a short limit.
  std::future<void> stopped = StopModule();
  const bool answered = !stopped.valid() || stopped.wait_for(timeouts.module) == std::future_status::ready;
  if (!answered) log->Write(Severity::kWarning, "[host] the driver does not answer; stopping without clearing it");
  // Ends the connection, so that every request fails. The module reconnects after five seconds; from here on its
  // connections are refused.
  emulator->Stop();
  if (filterPort != nullptr) filterPort->Stop();
  if (!answered) stopped.wait_for(timeouts.module);
  recording->Stop();
}

std::future<void> ReferenceHost::StopModule() {
  const std::shared_ptr<CFenlux> module = Module();
  if (module == nullptr) return {};
  std::packaged_task<void()> stop([module, log = log, recording = recording] {
    try {
      recording->AddCall("stop", {{"clear", "true"}});
      module->StopWork(true);
    } catch (...) {
      log->Write(Severity::kProblem, "[host] stopping the module's work failed: " + CurrentExceptionText());
    }
  });
  std::future<void> stopped = stop.get_future();
  try {
    StartDetachedThread("stopping the module", std::move(stop));
  } catch (const std::runtime_error& error) {
    log->Write(Severity::kProblem, std::string("[host] ") + error.what());
    return {};  // stopping the driver's side ends the module's connection
  }
  return stopped;
}

bool ReferenceHost::DrainLog(std::chrono::milliseconds limit) {
  decisionLog->ReportHidden(DecisionLog::TimePoint::max());
  return log->Drain(limit);
}

void ReferenceHost::Poll() {
  policyWatch.Poll(PolicyWatch::Clock::now());
  policyNotifications.store(policyWatch.NotificationCount());
  decisionLog->ReportHidden(std::chrono::steady_clock::now());
}

void ReferenceHost::Log(Severity severity, const std::string& line) { log->Write(severity, line); }

void ReferenceHost::NotifyPolicyChanged() {
  recording->AddCall("policy-changed", Report::object());
  Module()->NotifyPolicyChanged();
}

std::shared_ptr<CFenlux> ReferenceHost::Module() const { return context->Module(); }

boost::filesystem::path ReferenceHost::ModuleFile() const {
  const MutexLock lock(moduleMutex);
  return moduleLibrary;
}

bool ReferenceHost::ScenarioFinished() const { return emulator->ScenarioFinished(); }

EmulatorState ReferenceHost::DriverState() const { return emulator->State(); }

}  // namespace fenlux::refhost
