// The emulated driver between its port and its event source: the present connection, what it was told, its faults, and
// the delivery of notifications.
//
// Locks, in the order in which they are taken where they nest: the wake lock (what sources wait for), the model's lock,
// the lock of the present port's handle; a slot's lock and the totals' are innermost. Delivering takes none but the
// last three, each for a few instructions: neither a request being carried out nor a snapshot of the state holds it up.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

#include "refhost/emulator/driver/driver_model.h"
#include "refhost/emulator/driver/driver_port.h"
#include "refhost/emulator/driver/pending_answers.h"
#include "refhost/emulator/driver/reply_check.h"
#include "refhost/emulator/driver_emulator.h"
#include "refhost/emulator/sources/event_source.h"
#include "refhost/emulator/totals_counter.h"

namespace fenlux::refhost {

struct DeliveryOptions {
  std::optional<std::uint32_t> expectedVerdict;  // 0: no reply
  std::chrono::milliseconds holdReply{0};
  bool holdUntilEnd = false;
  AnswerRelease* release = nullptr;  // called where somebody else takes the answer
};

// What came of one delivery, for the thread that made it.
struct Delivery {
  enum class Outcome {
    kNotConnected,  // nobody to deliver to; nothing was counted
    kAnswered,      // `verdict`
    kUnansweredByDesign,
    kLost,   // `cause`
    kTaken,  // somebody else took the answer under `cause` and let the operation go
  };
  Outcome outcome = Outcome::kNotConnected;
  std::uint32_t verdict = 0;
  UnjudgedCause cause = UnjudgedCause::kNoConnection;
};

class DriverCore {
 public:
  DriverCore(const EmulatorSettings& settings, const EmulatorFaults& scenarioFaults, EmulatorHooks hooks);

  // --- The module's side: port clients.
  void Connect(const std::shared_ptr<DriverPort>& port);
  void StartDelivery(const std::shared_ptr<DriverPort>& port);
  void Send(const std::shared_ptr<DriverPort>& port, const std::shared_ptr<CBuf>& request, std::shared_ptr<CBuf>& reply,
            bool flag);
  // Ends the port, if it has not ended: answers still out are counted under `cause`. Any thread, also inside a handler.
  void End(const std::shared_ptr<DriverPort>& port, UnjudgedCause cause, const std::string& reason);

  // --- The event source's side. Deliver is for one slot's owner; the message is `size` bytes and read only.
  std::shared_ptr<AnswerSlot> MakeSlot() { return answers.MakeSlot(); }
  Delivery Deliver(AnswerSlot& slot, const std::uint8_t* message, std::uint32_t size, const DeliveryOptions& options);
  // Blocks until a notification can be delivered; false where the emulator stops.
  bool WaitDeliverable();
  // False where the emulator stops meanwhile.
  bool Sleep(std::chrono::nanoseconds duration);
  // Blocks until the present connection has received the command so often; false in vain or where the emulator stops.
  bool WaitForRequest(std::uint32_t command, std::uint64_t times, std::chrono::milliseconds limit);
  // Ends the present connection, if there is one.
  void DropConnection(const std::string& reason);
  void SetFaults(const EmulatorFaults& faults);
  bool Stopping() const { return stopping; }
  TotalsCounter& Totals() { return totals; }
  void AddViolation(const std::string& text);
  void Log(EmulatorLogLevel level, const std::string& line);
  void ReportScenarioFinished();

  // --- The emulator's own side.
  // Hands watch changes and watchdog ticks to the source from now on, beginning with the present set; starts the
  // watchdog.
  void Attach(std::shared_ptr<EventSource> source);
  // Ends the port for good and takes every answer; no delivery begins any more.
  void BeginStop();
  // Ends the watchdog, lets go of the source and of the hooks.
  void FinishStop();
  EmulatorState State() const;

 private:
  struct Faults {
    std::uint32_t refuseConnects = 0;
    std::uint64_t dropAfter = 0;
    std::uint32_t driverVersion = 0;
    VersionReply versionReply = VersionReply::kFill;
    std::optional<FailingSend> failSend;
    std::chrono::milliseconds delayRequests{0};
  };
  // What the handler made of a notification.
  struct Answer {
    std::optional<UnjudgedCause> lostFor;
    std::uint32_t verdict = 0;  // 0: none, by design
    std::string violation;
  };

  std::shared_ptr<DriverPort> Present() const;
  void CheckConnect(const DriverPort& port, std::uint32_t& clientType);
  [[noreturn]] void RefuseConnect(const std::string& reason, bool violation);
  void FailSendIfDue(const std::shared_ptr<CBuf>& request);
  void AnswerVersion(const Faults& faults, std::shared_ptr<CBuf>& reply);
  Answer CallHandler(const DriverPort& port, const std::uint8_t* message, std::uint32_t size);
  void HoldReply(DriverPort& port, const DeliveryOptions& options);
  void CountAnswer(const Answer& answer, std::chrono::nanoseconds latency);
  void UpdateWatch();
  void Wake();
  void RunWatchdog();

  const std::chrono::milliseconds deadline;
  TotalsCounter totals;
  PendingAnswers answers{totals};
  std::atomic<bool> stopping{false};
  std::atomic<std::chrono::milliseconds> delayReplies{std::chrono::milliseconds(0)};

  mutable std::mutex wakeMutex;
  std::condition_variable wake;

  mutable std::mutex modelMutex;  // the model, the faults and the watch revision
  DriverModel model;
  Faults faults;
  std::uint64_t watchRevision = 0;

  mutable std::mutex presentMutex;
  std::shared_ptr<DriverPort> present;

  std::mutex sourceMutex;
  std::shared_ptr<EventSource> source;

  std::mutex hooksMutex;
  EmulatorHooks hooks;

  std::mutex watchdogMutex;
  std::condition_variable watchdogWake;
  bool watchdogStop = false;
  std::thread watchdog;
};

}  // namespace fenlux::refhost
