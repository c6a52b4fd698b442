// The configuration of one host: the whole file as settings, read and validated at once.
#pragma once

#include <boost/filesystem/path.hpp>

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

struct ControlSettings {
  bool enabled = true;
  boost::filesystem::path socket;  // empty: the user's default place

  bool operator==(const ControlSettings&) const = default;
};

// What stays for the host's life.
struct StartSettings {
  boost::filesystem::path moduleLibrary;  // empty: the one beside the program
  bool stopAtEnd = false;                 // end when the scenario has ended
  LogSettings log;
  FixedSettings module;
  ControlSettings control;
  DriverSettings driver;
  SystemImages systemImages;

  bool operator==(const StartSettings&) const = default;
};

// What a running host takes over from a changed file.
struct ReloadableSettings {
  LiveSettings module;
  Rules rules;
  Translations translations;
};

struct HostConfig {
  StartSettings start;
  ReloadableSettings reloadable;
  EmulatorSettings emulator;
  Scenario scenario;  // the one that the emulator's settings name
};

// Reads and validates a host's configuration with the scenario that it names. The result is of use only where `errors`
// stays empty.
HostConfig LoadHostConfig(const boost::filesystem::path& file, ConfigErrors& errors);

// Validates a file of either kind: a scenario, or a host's configuration with the scenario that it names.
void CheckFile(const boost::filesystem::path& file, ConfigErrors& errors);

}  // namespace fenlux::refhost
