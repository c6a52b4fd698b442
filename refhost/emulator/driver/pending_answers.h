// The notifications that the module is working on. For each, exactly one party takes the answer; that party counts the
// notification and releases its operation.
//
// Ownership: a slot belongs to one delivery thread, which opens it before it calls the module (Open) and takes it back
// when the reply has arrived (TakeBack). Until then the watchdog (TakeIfOverdue, at the deadline), the end of the
// connection, or Stop (TakeForEnd) may take it instead. A slot's lock is held while its answer is taken and its
// operation released, which writes a few bytes to the kernel and never blocks; not while the module works. The totals'
// lock and the locks of Release are taken under it. The lock of the list of slots is taken before a slot's lock. Taking
// an answer allocates no memory.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "common/mutex.h"
#include "common/thread_annotations.h"
#include "refhost/emulator/driver/shared/totals_counter.h"

namespace fenlux::refhost {

class DriverPort;

// Informs the source of a notification, and releases the notification's operation.
class AnswerRelease {
 public:
  // The notification was counted as delivered and now goes to the module. Owner of the slot.
  virtual void Delivered() noexcept {}
  // Releases the operation: another party took the answer and has counted the notification under `cause`. Called at
  // most once per delivery, under the slot's lock: must neither block nor deliver.
  virtual void Release(UnjudgedCause cause) noexcept = 0;

 protected:
  ~AnswerRelease() = default;
};

class AnswerSlot {
 public:
  using TimePoint = std::chrono::steady_clock::time_point;

  explicit AnswerSlot(TotalsCounter& counter) : totals(counter) {}

  // Counts the notification as delivered and opens the slot. Does nothing and returns false if the port has ended.
  // Owner only.
  bool Open(const std::shared_ptr<DriverPort>& port, std::uint32_t code, TimePoint deadline, AnswerRelease* release);
  // Closes the slot. Returns nullopt if the owner is now to count the notification, otherwise the cause under which
  // another party has counted it. Owner only.
  std::optional<UnjudgedCause> TakeBack();

  // Takes the answer if it is overdue; otherwise returns the deadline if an answer is pending. Any thread.
  std::optional<TimePoint> TakeIfOverdue(TimePoint now);
  // Takes the answer if it is pending on `endedPort`, or on any port if that is null. Any thread.
  void TakeForEnd(const DriverPort* endedPort, UnjudgedCause cause);

 private:
  void TakeAway(UnjudgedCause cause) FENLUX_REQUIRES(mutex);

  TotalsCounter& totals;
  Mutex mutex;
  bool out FENLUX_GUARDED_BY(mutex) = false;  // with the module, and not taken
  std::optional<UnjudgedCause> taken FENLUX_GUARDED_BY(mutex);
  std::shared_ptr<DriverPort> port FENLUX_GUARDED_BY(mutex);
  TimePoint deadline FENLUX_GUARDED_BY(mutex){};
  AnswerRelease* release FENLUX_GUARDED_BY(mutex) = nullptr;
};

// All slots. Any thread.
class PendingAnswers {
 public:
  explicit PendingAnswers(TotalsCounter& counter) : totals(counter) {}

  // A slot for one delivery thread; removed from the list once the thread releases it.
  std::shared_ptr<AnswerSlot> MakeSlot();
  // Takes all answers that are overdue at `now`; returns the next deadline, if there is one.
  std::optional<AnswerSlot::TimePoint> TakeOverdue(AnswerSlot::TimePoint now);
  void TakeForEnd(const DriverPort* port, UnjudgedCause cause);

 private:
  TotalsCounter& totals;
  Mutex mutex;
  std::vector<std::weak_ptr<AnswerSlot>> slots FENLUX_GUARDED_BY(mutex);
};

}  // namespace fenlux::refhost
