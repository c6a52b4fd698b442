// A slot for each notification on its way, which exactly one party empties; the watchdog looks for those that are due.
#include "refhost/emulator/pending_answers.h"

#include <algorithm>

#include "refhost/emulator/driver_port.h"

namespace fenlux::refhost {

bool AnswerSlot::Open(const std::shared_ptr<DriverPort>& port, std::uint32_t code, TimePoint deadline,
                      AnswerRelease* release) {
  // The port's end is marked before the slots are gone through. Under the lock, either this sees the mark or the one
  // who ends the port sees the open slot.
  const std::lock_guard lock(mutex_);
  if (port->Ended()) return false;
  totals_.Delivered(code);
  out_ = true;
  taken_.reset();
  port_ = port;
  deadline_ = deadline;
  release_ = release;
  return true;
}

std::optional<UnjudgedCause> AnswerSlot::TakeBack() {
  const std::lock_guard lock(mutex_);
  out_ = false;
  port_.reset();
  return taken_;
}

std::optional<AnswerSlot::TimePoint> AnswerSlot::TakeIfOverdue(TimePoint now) {
  const std::lock_guard lock(mutex_);
  if (!out_) return std::nullopt;
  if (now < deadline_) return deadline_;
  TakeAway(UnjudgedCause::kLate);
  return std::nullopt;
}

void AnswerSlot::TakeForEnd(const DriverPort* port, UnjudgedCause cause) {
  const std::lock_guard lock(mutex_);
  if (out_ && (port == nullptr || port == port_.get())) TakeAway(cause);
}

void AnswerSlot::TakeAway(UnjudgedCause cause) {
  out_ = false;
  taken_ = cause;
  if (cause == UnjudgedCause::kLate) {
    totals_.Late();
  } else {
    totals_.Lost(cause);
  }
  if (release_ != nullptr) release_->Release(cause);
}

std::shared_ptr<AnswerSlot> PendingAnswers::MakeSlot() {
  auto slot = std::make_shared<AnswerSlot>(totals_);
  const std::lock_guard lock(mutex_);
  std::erase_if(slots_, [](const auto& known) { return known.expired(); });
  slots_.push_back(slot);
  return slot;
}

std::optional<AnswerSlot::TimePoint> PendingAnswers::TakeOverdue(AnswerSlot::TimePoint now) {
  std::optional<AnswerSlot::TimePoint> next;
  for (const auto& slot : Slots()) {
    const auto deadline = slot->TakeIfOverdue(now);
    if (deadline && (!next || *deadline < *next)) next = deadline;
  }
  return next;
}

void PendingAnswers::TakeForEnd(const DriverPort* port, UnjudgedCause cause) {
  for (const auto& slot : Slots()) slot->TakeForEnd(port, cause);
}

std::vector<std::shared_ptr<AnswerSlot>> PendingAnswers::Slots() {
  std::vector<std::shared_ptr<AnswerSlot>> slots;
  const std::lock_guard lock(mutex_);
  slots.reserve(slots_.size());
  for (const auto& known : slots_) {
    if (auto slot = known.lock()) slots.push_back(std::move(slot));
  }
  return slots;
}

}  // namespace fenlux::refhost
