// Delivers one notification, checks its reply and counts the outcome.
#include "refhost/emulator/driver/notification_delivery.h"

#include <fmt/format.h>

#include <new>
#include <utility>

namespace fenlux::refhost {

Delivery NotificationDelivery::Deliver(AnswerSlot& slot, const NotificationView& notification,
                                       const DeliveryOptions& options) noexcept {
  const std::shared_ptr<DriverPort> port = connections.CurrentPort();
  if (port == nullptr || !port->Deliverable()) return {};
  std::chrono::steady_clock::time_point start;
  const DriverPort::Place place = port->BeginDelivery([&] {
    start = std::chrono::steady_clock::now();
    return slot.Open(port, notification.Code(), start + settings.deadline, options.release);
  });
  if (place == DriverPort::Place::kNone) return {};
  if (options.release != nullptr) options.release->Delivered();

  DecisionScope scope(decisions, notification.Code(), options.operation);
  Answer answer = CallHandler(*port, notification);
  ReportViolation(notification, answer, options.expectedVerdict);
  const auto end = [this, &port] {
    connections.End(port, UnjudgedCause::kConnectionEnded, "the notification limit of the connection is reached");
  };
  const bool last = place == DriverPort::Place::kLast;
  if (last && options.holdUntilEnd) end();
  HoldReply(*port, options);

  const auto taken = slot.TakeBack();
  // The thread that ends the port may not have reached this slot yet.
  if (port->Ended()) answer.lostFor = wake.Stopping() ? UnjudgedCause::kStopped : UnjudgedCause::kConnectionEnded;
  const std::chrono::nanoseconds latency = std::chrono::steady_clock::now() - start;
  const Delivery delivery =
      taken ? Delivery{Delivery::Outcome::kTaken, kNoVerdict, *taken} : Count(notification.Code(), answer, latency);
  scope.End(EndOf(delivery, latency));
  if (last) end();
  return delivery;
}

NotificationDelivery::Answer NotificationDelivery::CallHandler(const DriverPort& port,
                                                               const NotificationView& notification) {
  const ReplyDue due = DueReply(notification, port.ClientType());
  Answer answer;
  try {
    const std::shared_ptr<CBuf> reply = port.Handler()(notification.Data(), notification.Size());
    if (reply == nullptr) {
      if (!due.none) answer.lostFor = UnjudgedCause::kEmptyReply;
      return answer;
    }
    ReplyFinding finding = CheckReply(reply->GetData(), reply->GetSize(), due);
    answer.verdict = finding.verdict;
    answer.violation = std::move(finding.violation);
    if (!answer.violation.empty()) answer.lostFor = UnjudgedCause::kMalformedReply;
  } catch (...) {
    answer = {};
    answer.lostFor = UnjudgedCause::kHandlerThrew;
  }
  return answer;
}

void NotificationDelivery::ReportViolation(const NotificationView& notification, const Answer& answer,
                                           std::optional<std::uint32_t> expectedVerdict) {
  const bool unexpected = expectedVerdict && !answer.lostFor && answer.verdict != *expectedVerdict;
  if (!unexpected && answer.violation.empty()) return;
  std::string text;
  try {
    text = unexpected ? fmt::format("verdict {} where {} was expected", answer.verdict, *expectedVerdict)
                      : answer.violation;
    text = fmt::format("notification {}: {}", notification.Code(), text);
  } catch (const std::bad_alloc&) {  // counted without its text
  }
  model.ReportViolation(text);
}

void NotificationDelivery::HoldReply(DriverPort& port, const DeliveryOptions& options) {
  if (options.holdUntilEnd) return port.WaitEnded();
  const auto hold = options.holdReply + delayReplies.load();
  if (hold.count() > 0) port.WaitEndedFor(hold);
}

Delivery NotificationDelivery::Count(std::uint32_t code, const Answer& answer, std::chrono::nanoseconds latency) {
  if (answer.lostFor) {
    totals.Lost(*answer.lostFor);
    return {Delivery::Outcome::kLost, kNoVerdict, *answer.lostFor};
  }
  if (answer.verdict == kNoVerdict) {
    totals.UnansweredByDesign(latency);
    return {Delivery::Outcome::kUnansweredByDesign};
  }
  totals.Answered(code, answer.verdict, latency);
  return {Delivery::Outcome::kAnswered, answer.verdict};
}

DecisionEnd NotificationDelivery::EndOf(const Delivery& delivery, std::chrono::nanoseconds latency) const {
  DecisionEnd end;
  end.verdict = delivery.verdict;
  end.latency = latency;
  std::optional<UnjudgedCause> cause;
  if (delivery.outcome == Delivery::Outcome::kLost || delivery.outcome == Delivery::Outcome::kTaken) {
    cause = delivery.cause;
  } else if (settings.kernel.Refuses(delivery.verdict)) {
    end.refused = true;
  } else if (delivery.verdict == static_cast<std::uint32_t>(records::Verdict::kUnjudged)) {
    cause = UnjudgedCause::kNotJudged;
  }
  if (cause) {
    end.refused = IsRefusedUnjudged(*cause, settings.unjudged);
    end.wouldRefuse = end.refused && !enforced;
    end.cause = UnjudgedCauseName(*cause);
  }
  end.refused = end.refused && enforced;
  return end;
}

bool NotificationDelivery::WaitDeliverable() {
  return wake.WaitUntil([this] {
    const auto port = connections.CurrentPort();
    return port != nullptr && port->Deliverable();
  });
}

void NotificationDelivery::SetFaults(const EmulatorFaults& changes) {
  if (changes.delayReplies) delayReplies = *changes.delayReplies;
}

}  // namespace fenlux::refhost
