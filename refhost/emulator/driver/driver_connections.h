// The driver's connections: which port is connected now, how a port is connected, and how it ends.
//
// Ownership: owns the handle of the current port and the faults that affect connections. It has no threads: the
// module's connection worker calls Connect and Start; any thread may call the rest, including a delivery thread inside
// a handler. End marks the port as ended and then takes its pending answers (PendingAnswers::TakeForEnd). After that
// call the delivery threads no longer owe a reply, and the blocked operations have been released.
//
// Locks: connectMutex is held while a port is connected or removed, and taken before currentMutex and before the locks
// of the model and the hooks. Delivery takes currentMutex alone, which is held only to copy or replace the handle.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "common/mutex.h"
#include "common/thread_annotations.h"
#include "refhost/emulator/driver/driver_port.h"
#include "refhost/emulator/driver/pending_answers.h"
#include "refhost/emulator/driver/shared/driver_model.h"
#include "refhost/emulator/driver/shared/hook_caller.h"
#include "refhost/emulator/driver/shared/source_link.h"
#include "refhost/emulator/driver/shared/wake_signal.h"
#include "refhost/emulator/emulator_faults.h"

namespace fenlux::refhost {

class DriverConnections {
 public:
  DriverConnections(DriverModel& driverModel, PendingAnswers& pendingAnswers, SourceLink& sourceLink,
                    WakeSignal& wakeSignal, HookCaller& hookCaller)
      : model(driverModel), answers(pendingAnswers), source(sourceLink), wake(wakeSignal), hooks(hookCaller) {}

  // Connects the port. Throws std::runtime_error if the driver refuses it or the emulator stops.
  void Connect(const std::shared_ptr<DriverPort>& port);
  // Begins delivery on the port. Throws std::runtime_error if it is not connected or was started before.
  void Start(const std::shared_ptr<DriverPort>& port);
  // Ends the port and counts its pending answers under `cause`. Does nothing if it has ended already. If memory runs
  // out, only the watch is not updated and the log line is missing.
  void End(const std::shared_ptr<DriverPort>& port, UnjudgedCause cause, std::string_view reason) noexcept;
  // Ends the current connection, if there is one.
  void EndCurrent(UnjudgedCause cause, std::string_view reason) noexcept;

  // The connected port; null if there is none.
  std::shared_ptr<DriverPort> CurrentPort() const FENLUX_EXCLUDES(currentMutex);
  // Applies the faults that affect connections, including the current one.
  void SetFaults(const EmulatorFaults& changes);

 private:
  // Makes the port the current one and returns the number of its connection.
  std::uint64_t Open(const std::shared_ptr<DriverPort>& port) FENLUX_REQUIRES(connectMutex);
  void SetCurrentPort(std::shared_ptr<DriverPort> port) FENLUX_EXCLUDES(currentMutex);
  // Counts and logs the refusal, then throws std::runtime_error with the reason.
  [[noreturn]] void Refuse(EmulatorLogLevel level, const std::string& reason);
  [[noreturn]] void RefuseViolation(const std::string& violation);

  DriverModel& model;
  PendingAnswers& answers;
  SourceLink& source;
  WakeSignal& wake;
  HookCaller& hooks;

  Mutex connectMutex FENLUX_ACQUIRED_BEFORE(currentMutex);
  std::uint32_t connectsToRefuse FENLUX_GUARDED_BY(connectMutex) = 0;
  std::uint64_t dropAfter FENLUX_GUARDED_BY(connectMutex) = 0;

  mutable Mutex currentMutex;
  std::shared_ptr<DriverPort> current FENLUX_GUARDED_BY(currentMutex);
};

}  // namespace fenlux::refhost
