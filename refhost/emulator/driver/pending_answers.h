// Which notifications are out with the module, and who takes the answer of each: exactly one party does, and it alone
// counts the notification and lets its operation go.
//
// Ownership: a slot belongs to one delivery thread, which opens it before it calls the module and takes it back when
// the reply has come. Until then the watchdog (at the deadline), whoever ends the connection, and Stop may take it
// instead. A slot's lock is held for the taking and for the release, which writes a few bytes to the kernel and never
// waits; it is not held while the module works.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

#include "refhost/emulator/totals_counter.h"

namespace fenlux::refhost {

class DriverPort;

// What a delivery thread wants to know of a notification, and how its operation is let go.
class AnswerRelease {
 public:
  // The notification was counted as delivered and now goes to the module. Owner of the slot.
  virtual void Delivered() noexcept {}
  // Called at most once per delivery, under the slot's lock: must neither block nor deliver. The notification has been
  // counted under `cause` already.
  virtual void Release(UnjudgedCause cause) noexcept = 0;

 protected:
  ~AnswerRelease() = default;
};

class AnswerSlot {
 public:
  using TimePoint = std::chrono::steady_clock::time_point;

  explicit AnswerSlot(TotalsCounter& counter) : totals(counter) {}

  // Counts the notification as delivered and opens the slot; false, having done nothing, where the port has ended.
  // Owner only.
  bool Open(const std::shared_ptr<DriverPort>& port, std::uint32_t code, TimePoint deadline, AnswerRelease* release);
  // Takes the answer for the owner: nothing where it is the owner's to count, else the cause under which it was
  // counted by whoever was first. Owner only.
  std::optional<UnjudgedCause> TakeBack();

  // Take the answer away where it is still out, and count it: for the deadline (which gives back the deadline of a
  // slot whose time has not come), and for the end of `port` or, where that is null, of everything.
  std::optional<TimePoint> TakeIfOverdue(TimePoint now);
  void TakeForEnd(const DriverPort* port, UnjudgedCause cause);

 private:
  void TakeAway(UnjudgedCause cause);

  TotalsCounter& totals;
  std::mutex mutex;
  bool out = false;
  std::optional<UnjudgedCause> taken;
  std::shared_ptr<DriverPort> port;
  TimePoint deadline{};
  AnswerRelease* release = nullptr;
};

// All slots. Any thread.
class PendingAnswers {
 public:
  explicit PendingAnswers(TotalsCounter& counter) : totals(counter) {}

  // A slot for one delivery thread; forgotten once the thread lets go of it.
  std::shared_ptr<AnswerSlot> MakeSlot();
  // Takes what is overdue at `now`; the next deadline, where there is one.
  std::optional<AnswerSlot::TimePoint> TakeOverdue(AnswerSlot::TimePoint now);
  void TakeForEnd(const DriverPort* port, UnjudgedCause cause);

 private:
  std::vector<std::shared_ptr<AnswerSlot>> Slots();

  TotalsCounter& totals;
  std::mutex mutex;
  std::vector<std::weak_ptr<AnswerSlot>> slots;
};

}  // namespace fenlux::refhost
