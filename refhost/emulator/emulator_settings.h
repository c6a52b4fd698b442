// The emulator's configuration: the [emulator] table of the host's file.
#pragma once

#include <algorithm>
#include <boost/filesystem/path.hpp>
#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "kdi/driver_records.h"
#include "refhost/emulator/emulator_faults.h"
#include "refhost/emulator/unjudged.h"

namespace fenlux::refhost {

class ConfigTable;

enum class EventSourceKind { kScripted, kFanotify };

// Which kernel events to watch for, and what to do with them.
struct KernelEventSettings {
  bool followPolicy = true;              // watch the directories that the module commits (types 1 and 2)
  std::vector<std::string> directories;  // watch these as well
  bool recursive = false;                // include the directories below them
  bool onOpen = true;
  bool onAccess = false;
  bool onExec = false;
  std::uint32_t threads = 2;  // the threads that read kernel events and respond to them
  std::vector<std::uint32_t> refusingVerdicts{static_cast<std::uint32_t>(records::Verdict::kVerdict4),
                                              static_cast<std::uint32_t>(records::Verdict::kVerdict5)};

  // Whether the verdict refuses an operation.
  bool Refuses(std::uint32_t verdict) const {
    return std::find(refusingVerdicts.begin(), refusingVerdicts.end(), verdict) != refusingVerdicts.end();
  }
  bool operator==(const KernelEventSettings&) const = default;
};

struct EmulatorSettings {
  EventSourceKind source = EventSourceKind::kScripted;
  boost::filesystem::path scenarioFile;                   // of the scripted source; empty: no events
  std::uint32_t driverVersion = records::kModuleVersion;  // the answer to the version request
  std::chrono::milliseconds deadline{1000};               // the time from delivery until the reply must be taken
  std::chrono::milliseconds stopGrace{2000};              // how long Stop waits for handler calls
  UnjudgedPolicy unjudged = UnjudgedPolicy::kAllow;       // what to do with operations not judged because of load
  bool refusalsEnforced = true;                           // the initial value
  EmulatorFaults faults;                                  // the initial faults
  KernelEventSettings kernel;

  bool operator==(const EmulatorSettings&) const = default;
};

// Reads the table and reports errors in it. The caller calls Finish. Does not read the scenario file.
EmulatorSettings ReadEmulatorSettings(const ConfigTable& table);

}  // namespace fenlux::refhost
