// The delivery of notifications: handing one to the module, checking its reply, and counting what came of it.
//
// Ownership: owns the faults that concern replies. It has no thread of its own: Deliver runs on the delivery threads of
// the event source, one slot each. AnswerSlot::Open gives the delivery thread the duty to count the notification and to
// let its operation go; the call of the module's handler passes the duty to reply to the module, and its return gives
// it back. Meanwhile the watchdog, the end of the connection, or Stop may take the slot. AnswerSlot::TakeBack says who
// was first, and the delivery thread counts the notification only if nobody else did.
//
// Locks: none of its own. Delivering takes the lock of the current port's handle, of the slot and of the totals, each
// for a few instructions: neither a request being carried out nor a snapshot of the state holds it up.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "refhost/emulator/driver/driver_connections.h"
#include "refhost/emulator/driver/driver_model.h"
#include "refhost/emulator/driver/driver_port.h"
#include "refhost/emulator/driver/notification_view.h"
#include "refhost/emulator/driver/pending_answers.h"
#include "refhost/emulator/driver/reply_check.h"
#include "refhost/emulator/driver/totals_counter.h"
#include "refhost/emulator/driver/wake_signal.h"

namespace fenlux::refhost {

struct DeliveryOptions {
  std::optional<std::uint32_t> expectedVerdict;  // kNoVerdict: no reply
  std::chrono::milliseconds holdReply{0};
  bool holdUntilEnd = false;
  AnswerRelease* release = nullptr;  // called if another party takes the answer
};

// What came of one delivery, for the thread that made it.
struct Delivery {
  enum class Outcome {
    kNotConnected,  // nobody to deliver to; nothing was counted
    kAnswered,      // `verdict`
    kUnansweredByDesign,
    kLost,   // `cause`
    kTaken,  // another party took the answer under `cause` and let the operation go
  };
  Outcome outcome = Outcome::kNotConnected;
  std::uint32_t verdict = kNoVerdict;
  UnjudgedCause cause = UnjudgedCause::kNoConnection;
};

class NotificationDelivery {
 public:
  NotificationDelivery(std::chrono::milliseconds replyDeadline, DriverConnections& driverConnections,
                       DriverModel& driverModel, PendingAnswers& pendingAnswers, TotalsCounter& counter,
                       WakeSignal& wakeSignal)
      : deadline(replyDeadline),
        connections(driverConnections),
        model(driverModel),
        answers(pendingAnswers),
        totals(counter),
        wake(wakeSignal) {}

  // A slot for one delivery thread.
  std::shared_ptr<AnswerSlot> MakeSlot() { return answers.MakeSlot(); }
  // Delivers the notification over the current connection and blocks until its reply is taken. Owner of the slot.
  Delivery Deliver(AnswerSlot& slot, const NotificationView& notification, const DeliveryOptions& options);
  // Blocks until a notification can be delivered; false if the emulator stops.
  bool WaitDeliverable();
  // Applies those faults that concern replies.
  void SetFaults(const EmulatorFaults& changes);

 private:
  // What the handler made of a notification.
  struct Answer {
    std::optional<UnjudgedCause> lostFor;
    std::uint32_t verdict = kNoVerdict;  // of one that is not lost: no reply, by design
    std::string violation;
  };

  static Answer CallHandler(const DriverPort& port, const NotificationView& notification);
  void HoldReply(DriverPort& port, const DeliveryOptions& options);
  Delivery Count(const Answer& answer, std::chrono::nanoseconds latency);

  const std::chrono::milliseconds deadline;
  DriverConnections& connections;
  DriverModel& model;
  PendingAnswers& answers;
  TotalsCounter& totals;
  WakeSignal& wake;
  std::atomic<std::chrono::milliseconds> delayReplies{std::chrono::milliseconds(0)};
};

}  // namespace fenlux::refhost
