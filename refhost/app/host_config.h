// The host's configuration file as settings.
#pragma once

#include <boost/filesystem/path.hpp>
#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "refhost/app/metrics/metrics_settings.h"
#include "refhost/app/stop_deadline.h"
#include "refhost/base/config/config_content.h"
#include "refhost/capture/recording_port_client.h"
#include "refhost/emulator/emulator_settings.h"
#include "refhost/emulator/sources/scenario.h"
#include "refhost/port/driver_settings.h"
#include "refhost/services/configuration.h"
#include "refhost/services/events/judge.h"
#include "refhost/services/locale_service.h"
#include "refhost/services/log/log_service.h"
#include "refhost/services/processes/work_service.h"

namespace fenlux::refhost {

class ConfigErrors;
class ConfigTable;

struct ControlSettings {
  bool enabled = true;
  boost::filesystem::path socket;  // empty: the user's default socket

  bool operator==(const ControlSettings&) const = default;
};

// Fixed for the host's lifetime.
struct StartSettings {
  boost::filesystem::path moduleLibrary;  // empty: the default one
  bool stopAtEnd = false;                 // stop when the scenario ends
  std::chrono::milliseconds stopTimeout = kDefaultStopTimeout;
  bool insecurePermissions = false;  // set on the command line: as root, use files that other users may change
  LogSettings log;
  FixedSettings module;
  ControlSettings control;
  MetricsSettings metrics;
  DriverSettings driver;
  capture::RecordingSettings recording;  // without a file: recording begins on request
  SystemImages systemImages;

  bool operator==(const StartSettings&) const = default;
};

// Replaced when the file is reloaded.
struct ReloadableSettings {
  LiveSettings module;
  Rules rules;
  Translations translations;
};

struct HostConfig {
  StartSettings start;
  ReloadableSettings reloadable;
  EmulatorSettings emulator;
  Scenario scenario;      // the file named in the emulator's settings
  ConfigContent content;  // the file itself
};

// How the programs of events are judged. Depends on where events come from, so it is fixed for the host's lifetime.
struct ProgramJudging {
  bool kernelEvents = false;
  // The decision on an event whose program is unknown, if a rule's program pattern would decide it: one that refuses
  // the operation. nullopt if no decision refuses, or if events do not come from the kernel.
  std::optional<Decision> unknownProgram;
};

ProgramJudging ProgramJudgingOf(const HostConfig& config);

// Reads and validates a host's configuration and the scenario it names. Use the result only if `errors` stays empty. A
// reload passes how the running host judges, because a changed event source takes effect only after a restart.
HostConfig LoadHostConfig(const boost::filesystem::path& file, ConfigErrors& errors,
                          const std::optional<ProgramJudging>& running = std::nullopt);

// The settings of `file` that changed since it was `running` and take effect only after a restart, each as
// "log.console (host.toml:3)".
std::vector<std::string> ChangesThatNeedARestart(const ConfigContent& running, const HostConfig& reloaded,
                                                 const boost::filesystem::path& file);

// Reads only what `ctl` needs; errors in other tables of the file do not matter. A host without a control channel is an
// error.
ControlSettings LoadControlSettings(const boost::filesystem::path& file, ConfigErrors& errors);

// Which decisions refuse an operation, by the verdicts that the driver receives for them. Of the verdicts that a real
// driver receives, 4 and 5 count as refusing.
DecisionFlags RefusingDecisions(const HostConfig& config);

// Further checks of a host's configuration without errors, given the table it was read from.
using HostCheck = std::function<void(const ConfigTable& root, const HostConfig& config)>;

// Validates a scenario, or a host's configuration and the scenario it names. `alsoCheck` may be empty.
void CheckFile(const boost::filesystem::path& file, ConfigErrors& errors, const HostCheck& alsoCheck = {});

}  // namespace fenlux::refhost
