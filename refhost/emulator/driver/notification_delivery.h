// Delivers notifications: passes each to the module, checks the reply, and counts the outcome.
//
// Ownership: owns the faults that affect replies. It has no threads: Deliver runs on the delivery threads of the event
// source, with one slot for each. AnswerSlot::Open makes the delivery thread responsible for counting the notification
// and releasing its operation. While the module's handler runs, the watchdog, the end of the connection, or Stop may
// take the slot and do both instead. AnswerSlot::TakeBack then says who was first: the delivery thread counts the
// notification only if no other party did.
//
// Locks: none here. Deliver takes the locks of the current port's handle, the slot and the totals, each for a few
// instructions: neither a request in progress nor a snapshot of the state delays it.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "refhost/emulator/driver/driver_connections.h"
#include "refhost/emulator/driver/driver_port.h"
#include "refhost/emulator/driver/notification_view.h"
#include "refhost/emulator/driver/pending_answers.h"
#include "refhost/emulator/driver/reply_check.h"
#include "refhost/emulator/driver/shared/driver_model.h"
#include "refhost/emulator/driver/shared/totals_counter.h"
#include "refhost/emulator/driver/shared/wake_signal.h"
#include "refhost/emulator/emulator_settings.h"
#include "refhost/services/events/decision_sink.h"

namespace fenlux::refhost {

struct DeliveryOptions {
  std::optional<std::uint32_t> expectedVerdict;  // kNoVerdict: no reply
  std::chrono::milliseconds holdReply{0};
  bool holdUntilEnd = false;
  AnswerRelease* release = nullptr;  // called if another party takes the answer
  std::string_view operation;        // see DecisionRecord
};

// The outcome of one delivery.
struct Delivery {
  enum class Outcome {
    kNotConnected,  // no module to deliver to; nothing was counted
    kAnswered,      // `verdict`
    kUnansweredByDesign,
    kLost,   // `cause`
    kTaken,  // another party took the answer, counted it under `cause` and released the operation
  };
  Outcome outcome = Outcome::kNotConnected;
  std::uint32_t verdict = kNoVerdict;
  UnjudgedCause cause = UnjudgedCause::kNoConnection;
};

class NotificationDelivery {
 public:
  // A record of every judged event goes to `decisionSink`, which may be null. `refusalsEnforced` may change.
  NotificationDelivery(const EmulatorSettings& emulatorSettings, DriverConnections& driverConnections,
                       DriverModel& driverModel, PendingAnswers& pendingAnswers, TotalsCounter& counter,
                       WakeSignal& wakeSignal, DecisionSink* decisionSink, const std::atomic<bool>& refusalsEnforced)
      : settings(emulatorSettings),
        decisions(decisionSink),
        enforced(refusalsEnforced),
        connections(driverConnections),
        model(driverModel),
        answers(pendingAnswers),
        totals(counter),
        wake(wakeSignal) {}

  // A slot for one delivery thread.
  std::shared_ptr<AnswerSlot> MakeSlot() { return answers.MakeSlot(); }
  // Delivers the notification over the current connection and blocks until the reply is taken. If memory runs out,
  // only the text of a violation or of a log line is missing. Owner of the slot.
  Delivery Deliver(AnswerSlot& slot, const NotificationView& notification, const DeliveryOptions& options) noexcept;
  // Blocks until a notification can be delivered; false if the emulator stops.
  bool WaitDeliverable();
  // Applies the faults that affect replies.
  void SetFaults(const EmulatorFaults& changes);

 private:
  // The result of calling the handler.
  struct Answer {
    std::optional<UnjudgedCause> lostFor;
    std::uint32_t verdict = kNoVerdict;  // unless lost; kNoVerdict: no reply, by design
    std::string violation;
  };

  static Answer CallHandler(const DriverPort& port, const NotificationView& notification);
  void ReportViolation(const NotificationView& notification, const Answer& answer,
                       std::optional<std::uint32_t> expectedVerdict);
  void HoldReply(DriverPort& port, const DeliveryOptions& options);
  Delivery Count(std::uint32_t code, const Answer& answer, std::chrono::nanoseconds latency);
  // The outcome for the operation, if it is a kernel event's.
  DecisionEnd EndOf(const Delivery& delivery, std::chrono::nanoseconds latency) const;

  const EmulatorSettings settings;
  DecisionSink* const decisions;
  const std::atomic<bool>& enforced;
  DriverConnections& connections;
  DriverModel& model;
  PendingAnswers& answers;
  TotalsCounter& totals;
  WakeSignal& wake;
  std::atomic<std::chrono::milliseconds> delayReplies{std::chrono::milliseconds(0)};
};

}  // namespace fenlux::refhost
