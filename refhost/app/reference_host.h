// A running host: its services, its driver (emulated or real) and the module.
#pragma once

#include <atomic>
#include <boost/filesystem/path.hpp>
#include <chrono>
#include <cstdio>
#include <functional>
#include <future>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "common/mutex.h"
#include "refhost/app/control/module_owner.h"
#include "refhost/app/host_config.h"
#include "refhost/app/policy_watch.h"
#include "refhost/app/status/host_history.h"
#include "refhost/app/status/status_facts.h"
#include "refhost/app/summary.h"
#include "refhost/app/watch/event_feed.h"

namespace fenlux {
class CFenlux;
class CKDIBase;
}  // namespace fenlux

namespace fenlux::refhost {

class DecisionLog;
class DriverEmulator;
class FilterPort;
class HostContext;
class LocaleService;
class PortRecording;
class UtilityService;
class WorkService;

// The module cannot be used; the text says why.
class ModuleError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

struct ReloadResult {
  std::string errors;                // empty: the live settings are in force
  std::vector<std::string> waiting;  // changed settings that take effect only after a restart, with their places
};

// Create one per process and keep it until the process ends: the module's threads are never joined. Any thread may call
// any operation, except where noted.
class ReferenceHost final : public ModuleOwner {
 public:
  // Creates the services and the driver. Reload reads `file`. If `logFile` is null, opens the configured log. Throws
  // std::runtime_error if the log, the capture or the emulator's event source cannot be opened.
  ReferenceHost(boost::filesystem::path file, HostConfig config, std::shared_ptr<std::FILE> logFile = nullptr);
  ~ReferenceHost();
  ReferenceHost(const ReferenceHost&) = delete;
  ReferenceHost& operator=(const ReferenceHost&) = delete;

  // Loads the module, passes it the services and starts its work. An empty `library` means the configured one, or the
  // default. Call once. Throws ModuleError.
  void Start(const boost::filesystem::path& library);
  // Stops the module's work and the driver, waiting a limited time for each: a driver that does not answer cannot keep
  // the host from stopping. Call once.
  void Stop();
  // Waits until everything logged so far is written; false if `limit` passes first, because an output is stuck.
  bool DrainLog(std::chrono::milliseconds limit);

  // Ensures that the connection gets the current policy (see PolicyWatch). May block while the module waits for its
  // driver. Call it several times a second, always on the same thread.
  void Poll();
  // Reloads the configuration file: replaces the policy and the other live settings and notifies the module. If the
  // file has errors, logs them and changes nothing. Always reopens the log file, which may have been renamed.
  ReloadResult Reload();

  // `observer` is called when a reload begins (true) and ends (false); it must not throw. Call this before Start.
  void ObserveReloads(std::function<void(bool begins)> observer) { reloadObserver = std::move(observer); }

  // Writes a line to the host's log.
  void Log(Severity severity, const std::string& line);

  // Null before Start.
  std::shared_ptr<CFenlux> Module() const override;
  bool ScenarioFinished() const;
  EmulatorState DriverState() const;

  PortRecording& Recording() { return *recording; }
  // The events for watchers.
  EventFeed& Events() { return *events; }
  // Where observers of decisions attach.
  DecisionSink& Decisions() { return *decisions; }
  std::shared_ptr<const RulesInForce> RulesNow() const { return judge->InForce(); }
  // The decisions that refuse an operation.
  const DecisionFlags& Refusing() const { return judge->Settings().refusing; }

  SummaryFacts Facts() const;
  StatusFacts Status() const;
  // Adds to the history that Status shows, and ends a watch that nobody reads. Call it several times a second.
  void KeepHistory();

 private:
  std::shared_ptr<DriverEmulator> StartEmulator(HostConfig& config);
  HistoryCounts CountsForHistory(const EmulatorTotals& totals, const LogTotals& lines) const;
  // The library that Start loads; empty before.
  boost::filesystem::path ModuleFile() const;
  // Notifies the module of the policy and records that.
  void NotifyPolicyChanged();
  // Begins to stop the module's work on a new thread. The future is invalid if there is nothing to wait for.
  std::future<void> StopModule();
  // Reopens the log file by its name, or keeps the old file if that fails.
  void ReopenLog();
  ReloadResult ReadAgain();
  void LogLines(Severity severity, const std::string& prefix, const std::string& lines);

  const boost::filesystem::path configFile;
  const StartSettings start;
  const ConfigContent startContent;
  const ProgramJudging programJudging;
  const std::chrono::steady_clock::time_point startTime = std::chrono::steady_clock::now();
  const std::chrono::system_clock::time_point started = std::chrono::system_clock::now();

  std::shared_ptr<LogService> log;
  std::shared_ptr<PortRecording> recording;
  std::shared_ptr<LocaleService> locale;
  std::shared_ptr<RecordRegister> records;
  std::shared_ptr<NetService> net;
  std::shared_ptr<Configuration> configuration;
  const std::shared_ptr<DecisionSink> decisions = std::make_shared<DecisionSink>();
  const std::shared_ptr<EventFeed> events = std::make_shared<EventFeed>(decisions);
  std::shared_ptr<DecisionLog> decisionLog;
  std::shared_ptr<Judge> judge;
  const UnjudgedPolicy unjudgedPolicy;
  std::shared_ptr<DriverEmulator> emulator;
  std::shared_ptr<FilterPort> filterPort;  // the real driver's; null if the emulated one is used
  std::shared_ptr<WorkService> work;
  std::shared_ptr<HostContext> context;

  PolicyWatch policyWatch;
  std::atomic<std::uint64_t> policyNotifications{0};
  Mutex reloadMutex;                                // one reload at a time; nothing is guarded by it alone
  std::function<void(bool begins)> reloadObserver;  // may be empty
  std::atomic<std::uint64_t> reloads{0};
  std::atomic<std::uint64_t> refusedReloads{0};
  std::atomic<bool> lastReloadRefused{false};
  std::atomic<std::chrono::system_clock::duration> configurationLoaded{started.time_since_epoch()};
  HostHistory history;
  mutable Mutex moduleMutex;
  boost::filesystem::path moduleLibrary FENLUX_GUARDED_BY(moduleMutex);
};

}  // namespace fenlux::refhost
