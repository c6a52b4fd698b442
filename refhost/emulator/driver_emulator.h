// The kernel driver's side of the port: carries out the module's requests, delivers notifications, checks the reply to
// each, and fails on command.
//
// Threads: the emulator owns the threads of its event source (the delivery threads) and one watchdog. A delivery thread
// calls the module's handler itself. From then on exactly one party takes the answer and counts it: that thread with
// the reply, the watchdog at the deadline, the thread that ends the connection, or Stop. Only the delivery thread
// waits for a handler call, and Stop for a limited time.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "host/host.h"
#include "refhost/emulator/driver/shared/event_source.h"
#include "refhost/emulator/emulator_hooks.h"
#include "refhost/emulator/emulator_settings.h"
#include "refhost/emulator/emulator_state.h"
#include "refhost/emulator/emulator_totals.h"
#include "refhost/emulator/latency_counts.h"
#include "refhost/emulator/sources/scenario.h"

namespace fenlux::refhost {

class DriverEmulator {
 public:
  // Opens the event source and starts its threads. Until a module connects, scripted events wait and kernel events
  // follow the setting `unjudged`. Throws std::runtime_error with the reason if a thread cannot be started or the event
  // source cannot be opened: kernel events need Linux, root, and existing directories other than "/" and "/tmp".
  explicit DriverEmulator(EmulatorSettings settings, Scenario scenario = {}, EmulatorHooks hooks = {});
  // Stops.
  ~DriverEmulator();
  DriverEmulator(const DriverEmulator&) = delete;
  DriverEmulator& operator=(const DriverEmulator&) = delete;

  // Makes the port client that a host's CWinWork::CreatePortClient returns to the module. It may outlive the emulator;
  // its operations then fail. Any thread.
  std::shared_ptr<CPortClient> MakePortClient(const std::string& portName, const std::shared_ptr<CBuf>& connectContext,
                                              std::uint32_t maxMessageSize, NotificationHandler handler,
                                              std::uint32_t portValue);

  // Allows every pending operation, ends the connection, refuses new ones, and ends the threads. A handler call that
  // outlasts the settings' grace is left behind on its thread, which then touches only memory whose ownership it
  // shares. May be called more than once. Any thread but a delivery thread.
  void Stop();

  // Whether the scripted scenario has been played to its end; always false with another source or an endless scenario.
  bool ScenarioFinished() const;
  // Waits until it has; false if the scenario did not finish in time or the emulator was stopped first.
  bool WaitScenarioFinished(std::chrono::milliseconds limit) const;

  // With false, no operation is refused, not even one that could not be judged. Initially as configured. Any thread.
  void EnforceRefusals(bool enforced);

  // The directories to be watched for kernel events, each with the reason if it is not watched. Any thread.
  std::vector<WatchState> Watches() const;

  // Any thread.
  EmulatorState State() const;
  EmulatorTotals Totals() const;
  // All latencies since the start. Takes no lock that a delivery thread takes.
  LatencyCounts Latencies() const;
  // The longest latency since the last call with `reset`.
  std::chrono::nanoseconds MaxLatency(bool reset) const;

 private:
  class Impl;
  std::unique_ptr<Impl> impl;
};

}  // namespace fenlux::refhost
