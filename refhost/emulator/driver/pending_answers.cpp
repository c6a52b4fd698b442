// One slot per delivery thread; the first party takes the answer under the slot's lock.
#include "refhost/emulator/driver/pending_answers.h"

#include <algorithm>

#include "refhost/emulator/driver/driver_port.h"

namespace fenlux::refhost {

bool AnswerSlot::Open(const std::shared_ptr<DriverPort>& deliveryPort, std::uint32_t code, TimePoint replyDeadline,
                      AnswerRelease* answerRelease) {
  // The port is marked as ended before its slots are taken. So under the lock either this sees the mark, or the thread
  // that ends the port sees the open slot.
  const MutexLock lock(mutex);
  if (deliveryPort->Ended()) return false;
  totals.Delivered(code);
  out = true;
  taken.reset();
  port = deliveryPort;
  deadline = replyDeadline;
  release = answerRelease;
  return true;
}

std::optional<UnjudgedCause> AnswerSlot::TakeBack() {
  const MutexLock lock(mutex);
  out = false;
  port.reset();
  return taken;
}

std::optional<AnswerSlot::TimePoint> AnswerSlot::TakeIfOverdue(TimePoint now) {
  const MutexLock lock(mutex);
  if (!out) return std::nullopt;
  if (now < deadline) return deadline;
  TakeAway(UnjudgedCause::kLate);
  return std::nullopt;
}

void AnswerSlot::TakeForEnd(const DriverPort* endedPort, UnjudgedCause cause) {
  const MutexLock lock(mutex);
  if (out && (endedPort == nullptr || endedPort == port.get())) TakeAway(cause);
}

void AnswerSlot::TakeAway(UnjudgedCause cause) {
  out = false;
  taken = cause;
  if (cause == UnjudgedCause::kLate) {
    totals.Late();
  } else {
    totals.Lost(cause);
  }
  if (release != nullptr) release->Release(cause);
}

std::shared_ptr<AnswerSlot> PendingAnswers::MakeSlot() {
  auto slot = std::make_shared<AnswerSlot>(totals);
  const MutexLock lock(mutex);
  std::erase_if(slots, [](const auto& known) { return known.expired(); });
  slots.push_back(slot);
  return slot;
}

std::optional<AnswerSlot::TimePoint> PendingAnswers::TakeOverdue(AnswerSlot::TimePoint now) {
  std::optional<AnswerSlot::TimePoint> next;
  const MutexLock lock(mutex);
  for (const auto& known : slots) {
    const auto slot = known.lock();
    const auto deadline = slot != nullptr ? slot->TakeIfOverdue(now) : std::nullopt;
    if (deadline && (!next || *deadline < *next)) next = deadline;
  }
  return next;
}

void PendingAnswers::TakeForEnd(const DriverPort* port, UnjudgedCause cause) {
  const MutexLock lock(mutex);
  for (const auto& known : slots) {
    if (const auto slot = known.lock()) slot->TakeForEnd(port, cause);
  }
}

}  // namespace fenlux::refhost
