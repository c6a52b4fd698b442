// A scenario: the events and faults that the scripted source plays, in order.
#pragma once

#include <boost/filesystem/path.hpp>
#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "refhost/emulator/emulator_faults.h"

namespace fenlux::refhost {

class ConfigErrors;
class ConfigTable;

// The same notification, delivered `count` times.
struct NotifyStep {
  std::vector<std::uint8_t> message;
  std::uint64_t count = 1;
  double ratePerSecond = 0;                      // 0: as fast as the threads can
  std::uint32_t threads = 1;                     // threads that deliver concurrently
  std::optional<std::uint32_t> expectedVerdict;  // any other is a violation; 0: expect no reply
  std::chrono::milliseconds holdReply{0};        // how long to wait before taking the reply
  bool holdUntilEnd = false;                     // take the reply only when the connection ends
  bool inBackground = false;                     // the next step waits for the first deliveries, not for replies
};

struct PauseStep {
  std::chrono::milliseconds duration{0};
};

struct DropStep {};

struct FaultStep {
  EmulatorFaults faults;
};

// Waits until the current connection has received a command this many times; a timeout is a violation.
struct AwaitRequestStep {
  std::uint32_t command = 0;
  std::uint64_t times = 1;
  std::chrono::milliseconds limit{10000};
};

struct ScenarioStep {
  std::variant<NotifyStep, PauseStep, DropStep, FaultStep, AwaitRequestStep> action;
  std::uint32_t number = 0;  // its position in the scenario's file, counted from 1
};

struct Scenario {
  std::string name;
  std::uint32_t threads = 2;  // delivery threads
  std::uint64_t repeat = 1;   // how many times to play the steps; 0: until the emulator stops
  EmulatorFaults faults;      // the initial faults
  std::vector<ScenarioStep> steps;
};

// Reads a scenario from the root table of its file, reports errors in it, and calls Finish.
Scenario ReadScenario(const ConfigTable& root);
// Reads a scenario from a file. If it cannot be parsed, reports the errors and returns an empty scenario.
Scenario LoadScenario(const boost::filesystem::path& file, ConfigErrors& errors);

}  // namespace fenlux::refhost
