// The kernel driver's side of the port: takes the module's requests, delivers notifications, demands an answer to each,
// and fails on command.
//
// Threads: the emulator owns the threads of its event source (the delivery threads) and one watchdog. A delivery thread
// calls the module's handler itself; from the moment it does, exactly one party takes the answer - that thread with the
// reply, the watchdog at the deadline, whoever ends the connection, or Stop - and that party alone counts it. Nothing
// here waits for a handler call, but for the delivery thread that is inside it and, for a limited time, Stop.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "host/host.h"
#include "refhost/emulator/emulator_settings.h"
#include "refhost/emulator/emulator_state.h"
#include "refhost/emulator/emulator_totals.h"
#include "refhost/emulator/sources/scenario.h"

namespace fenlux::refhost {

enum class EmulatorLogLevel { kDetail, kEvent, kWarning, kProblem };

// What the emulator tells its host. Each may be empty. They are called on the emulator's and on the module's threads,
// several at once, must not block, throw, or call the emulator back, and are not called any more once Stop has
// returned.
struct EmulatorHooks {
  std::function<void(EmulatorLogLevel level, const std::string& line)> log;
  std::function<void()> scenarioFinished;
};

// How paths travel in requests: UTF-16, little-endian, ended by a NUL unless the text fills its field.
class DriverEmulator {
 public:
  // Opens the event source and starts its threads; events wait (scripted) or pass (kernel) until a module connects.
  // Throws std::runtime_error that says what is missing where the event source cannot be opened: kernel events need
  // Linux and root, and directories that exist and are neither "/" nor "/tmp".
  explicit DriverEmulator(EmulatorSettings settings, Scenario scenario = {}, EmulatorHooks hooks = {});
  // Stops.
  ~DriverEmulator();
  DriverEmulator(const DriverEmulator&) = delete;
  DriverEmulator& operator=(const DriverEmulator&) = delete;

  // What a host's CWinWork::CreatePortClient hands to the module. The port client stays usable, if only to fail, after
  // the emulator has gone. Any thread.
  std::shared_ptr<CPortClient> MakePortClient(const std::string& portName, const std::shared_ptr<CBuf>& connectContext,
                                              std::uint32_t maxMessageSize, NotificationHandler handler,
                                              std::uint32_t portValue);

  // Lets everything through, ends the connection, refuses every later one and ends the threads; a handler call that
  // outlasts the settings' grace is left behind on its thread, which then touches nothing but the emulator's own
  // memory. Any thread but a delivery thread; several times.
  void Stop();

  // Whether the scripted scenario has played to its end; never with another source or with an endless scenario.
  bool ScenarioFinished() const;
  // The same, waiting for it; false where it did not finish in that time or the emulator was stopped first.
  bool WaitScenarioFinished(std::chrono::milliseconds limit) const;

  // Any thread.
  EmulatorState State() const;
  EmulatorTotals Totals() const;

 private:
  class Impl;
  std::unique_ptr<Impl> impl;
};

}  // namespace fenlux::refhost
