// The module's requests: checks them, carries them out on the driver's model, and fails those that the faults select.
//
// Ownership: owns the faults that affect requests. It has no threads: Send runs on the module's threads, concurrently,
// and blocks only for a fault's delay. Send alone is responsible for the reply until it returns or throws; no other
// party can take it over.
//
// Locks: the faults' lock is held to read or change the faults, and no other lock is taken under it.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>

#include "common/mutex.h"
#include "common/thread_annotations.h"
#include "host/buf.h"
#include "refhost/emulator/driver/driver_port.h"
#include "refhost/emulator/driver/shared/driver_model.h"
#include "refhost/emulator/driver/shared/hook_caller.h"
#include "refhost/emulator/driver/shared/source_link.h"
#include "refhost/emulator/driver/shared/wake_signal.h"
#include "refhost/emulator/emulator_faults.h"

namespace fenlux::refhost {

class DriverRequests {
 public:
  DriverRequests(std::uint32_t driverVersion, DriverModel& driverModel, SourceLink& sourceLink, WakeSignal& wakeSignal,
                 HookCaller& hookCaller)
      : model(driverModel), source(sourceLink), wake(wakeSignal), hooks(hookCaller), version{driverVersion} {}

  // Carries out the request and returns the reply's buffer: `replyBuffer`, another one, or null. Throws
  // std::runtime_error if the driver refuses the request, and the exceptions that the faults select.
  std::shared_ptr<CBuf> Send(DriverPort& port, const std::shared_ptr<CBuf>& request,
                             const std::shared_ptr<CBuf>& replyBuffer, bool flag);
  // Applies the faults that affect requests.
  void SetFaults(const EmulatorFaults& changes);

 private:
  // How the version request is answered.
  struct VersionAnswer {
    std::uint32_t driverVersion = 0;
    VersionReply manner = VersionReply::kFill;
  };

  std::chrono::milliseconds Delay() const;
  VersionAnswer CurrentVersion() const;
  // The failure of this request, if the faults make it fail.
  std::optional<SendFailure> TakeFailure(CBuf* request);
  std::shared_ptr<CBuf> AnswerVersion(const VersionAnswer& answer, const std::shared_ptr<CBuf>& replyBuffer);

  DriverModel& model;
  SourceLink& source;
  WakeSignal& wake;
  HookCaller& hooks;

  mutable Mutex mutex;
  VersionAnswer version FENLUX_GUARDED_BY(mutex);
  std::optional<FailingSend> failSend FENLUX_GUARDED_BY(mutex);
  std::chrono::milliseconds delay FENLUX_GUARDED_BY(mutex){0};
};

}  // namespace fenlux::refhost
