// One running host: its services, its emulated driver and the module that it drives.
#pragma once

#include <atomic>
#include <boost/filesystem/path.hpp>
#include <chrono>
#include <memory>
#include <mutex>
#include <string>

#include "refhost/app/host_config.h"
#include "refhost/app/policy_watch.h"
#include "refhost/app/summary.h"

namespace fenlux {
class CFenlux;
class CKDIBase;
}  // namespace fenlux

namespace fenlux::refhost {

class DriverEmulator;
class FilterPort;
class HostContext;
class LocaleService;
class UtilityService;
class WorkService;

// A module that cannot be used, with the reason to show.
class ModuleError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Made once in the life of a process. The module's threads are never joined, so the object stays until the process
// ends. Operations: any thread, unless said otherwise.
class ReferenceHost {
 public:
  // Makes the services and the emulator. `file` is what Reload reads again. Throws std::runtime_error where the
  // log or the emulator's event source cannot be opened.
  ReferenceHost(boost::filesystem::path file, HostConfig config);
  ~ReferenceHost();
  ReferenceHost(const ReferenceHost&) = delete;
  ReferenceHost& operator=(const ReferenceHost&) = delete;

  // Loads the module, hands it the services and has it start its work. Throws ModuleError. Once.
  void Start(const boost::filesystem::path& library);
  // Stops the module's work, the emulator and the log, each for a limited time at most. Once.
  void Stop();

  // Looks after the connection's policy; to be called several times a second, on one thread.
  void Tend();
  // Reads the configuration file again; a bad one is logged and changes nothing, a good one replaces the policy and
  // the other live settings and is announced to the module. Returns the errors, empty where it was taken.
  std::string Reload();

  // The module; empty before Start.
  std::shared_ptr<CFenlux> Module() const;
  bool ScenarioFinished() const;
  LogService& Log() { return *log; }
  EmulatorState DriverState() const;

  SummaryFacts Facts() const;
  // What an operator asks first.
  Report StatusReport() const;

 private:
  void LogLines(Severity severity, const std::string& title, const std::string& lines);

  const boost::filesystem::path configFile;
  const StartSettings start;
  const std::chrono::steady_clock::time_point begun = std::chrono::steady_clock::now();

  std::shared_ptr<LogService> log;
  std::shared_ptr<LocaleService> locale;
  std::shared_ptr<RecordRegister> records;
  std::shared_ptr<NetService> net;
  std::shared_ptr<Configuration> configuration;
  std::shared_ptr<Judge> judge;
  std::shared_ptr<DriverEmulator> emulator;
  std::shared_ptr<FilterPort> filterPort;  // the real driver's, in place of the emulated one; empty otherwise
  std::shared_ptr<WorkService> work;
  std::shared_ptr<HostContext> context;

  PolicyWatch policyWatch;
  std::atomic<std::uint64_t> policyReminders{0};
  std::mutex reloadMutex;  // one reload at a time
  std::atomic<std::uint64_t> reloads{0};
  std::atomic<std::uint64_t> refusedReloads{0};
  boost::filesystem::path moduleLibrary;
};

}  // namespace fenlux::refhost
