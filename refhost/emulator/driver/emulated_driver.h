// The emulated driver, composed of its parts. The event source's threads and the module's port clients share ownership
// of it, because both may outlive the emulator.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <vector>

#include "refhost/emulator/driver/driver_connections.h"
#include "refhost/emulator/driver/driver_requests.h"
#include "refhost/emulator/driver/notification_delivery.h"
#include "refhost/emulator/driver/pending_answers.h"
#include "refhost/emulator/driver/shared/driver_model.h"
#include "refhost/emulator/driver/shared/hook_caller.h"
#include "refhost/emulator/driver/shared/source_link.h"
#include "refhost/emulator/driver/shared/totals_counter.h"
#include "refhost/emulator/driver/shared/wake_signal.h"
#include "refhost/emulator/driver/watchdog.h"
#include "refhost/emulator/emulator_hooks.h"
#include "refhost/emulator/emulator_settings.h"

namespace fenlux::refhost {

class EmulatedDriver {
 public:
  // `scenarioFaults` override those of the settings.
  EmulatedDriver(const EmulatorSettings& settings, const EmulatorFaults& scenarioFaults, EmulatorHooks hostHooks);

  HookCaller& Hooks() { return hooks; }
  WakeSignal& Wake() { return wake; }
  TotalsCounter& Totals() { return totals; }
  DriverModel& Model() { return model; }
  DriverConnections& Connections() { return connections; }
  DriverRequests& Requests() { return requests; }
  NotificationDelivery& Deliveries() { return delivery; }
  // Where the outcomes of operations are reported; may be null.
  const std::shared_ptr<DecisionSink>& Decisions() const { return decisions; }

  // If false, no operation is refused, not even one that could not be judged. Any thread.
  bool RefusalsEnforced() const { return refusalsEnforced.load(std::memory_order_relaxed); }
  void EnforceRefusals(bool enforced) { refusalsEnforced.store(enforced, std::memory_order_relaxed); }

  // Sets the faults that `changes` names, in one part of the driver after the other: a request or a notification that
  // arrives during the call may see only some of them. Any thread.
  void SetFaults(const EmulatorFaults& changes);
  // Blocks until the current connection has received the command this many times; false on timeout or if the emulator
  // stops. Any thread.
  bool WaitForRequest(std::uint32_t command, std::uint64_t times, std::chrono::milliseconds limit);

  // The directories that the source should watch. Any thread.
  std::vector<WatchState> Watches() { return source.Watches(); }
  // Gives the source the directories to watch, now and after every change, and starts the watchdog. Once.
  void Attach(std::shared_ptr<EventSource> eventSource);
  // Ends the connection and takes every pending answer; no delivery begins afterwards.
  void BeginStop();
  // Ends the watchdog and releases the source and the hooks.
  void FinishStop();

 private:
  const std::shared_ptr<DecisionSink> decisions;
  std::atomic<bool> refusalsEnforced;
  HookCaller hooks;
  WakeSignal wake;
  TotalsCounter totals;
  SourceLink source;
  DriverModel model;
  PendingAnswers answers;
  DriverConnections connections;
  DriverRequests requests;
  NotificationDelivery delivery;
  Watchdog watchdog;
};

}  // namespace fenlux::refhost
