// Parks whoever pauses, and lets go whose time has come.
#include "tests/support/manual_clock.h"

#include <algorithm>
#include <thread>

#include "common/clock.h"

namespace fenlux::testing {
namespace {
constexpr std::chrono::seconds kPatience{60};
}  // namespace

ManualClock& ManualClock::Instance() {
  static ManualClock* const clock = new ManualClock();  // outlives the parked threads
  return *clock;
}

void ManualClock::Reset() {
  const std::lock_guard lock(mutex_);
  for (ParkedThread& thread : parked_) thread.forgotten = true;
  at_once_.clear();
  everything_at_once_ = false;
  pauses_.clear();
}

void ManualClock::PassAtOnce(std::chrono::milliseconds duration, std::size_t times) {
  const std::lock_guard lock(mutex_);
  at_once_[duration] = times;
}

void ManualClock::PassEverything() {
  const std::lock_guard lock(mutex_);
  everything_at_once_ = true;
}

void ManualClock::Advance(std::chrono::milliseconds duration) {
  const std::lock_guard lock(mutex_);
  now_ += duration;
  for (ParkedThread& thread : parked_) {
    if (!thread.forgotten && thread.deadline <= now_) thread.released = true;
  }
  changed_.notify_all();
}

bool ManualClock::AwaitParked(std::chrono::milliseconds duration, std::size_t count) {
  std::unique_lock lock(mutex_);
  return changed_.wait_for(lock, kPatience, [&] { return ParkedLocked(duration) >= count; });
}

bool ManualClock::AwaitPauses(std::chrono::milliseconds duration, std::size_t count) {
  std::unique_lock lock(mutex_);
  return changed_.wait_for(lock, kPatience, [&] { return BegunLocked(duration) >= count; });
}

std::size_t ManualClock::Parked(std::chrono::milliseconds duration) {
  const std::lock_guard lock(mutex_);
  return ParkedLocked(duration);
}

std::vector<ManualClock::PauseRecord> ManualClock::Pauses() {
  std::vector<PauseRecord> shown;
  const std::lock_guard lock(mutex_);
  std::copy_if(pauses_.begin(), pauses_.end(), std::back_inserter(shown),
               [](const PauseRecord& pause) { return pause.duration < std::chrono::hours(1); });
  return shown;
}

std::chrono::steady_clock::time_point ManualClock::Now() {
  const std::lock_guard lock(mutex_);
  return now_;
}

void ManualClock::Pause(Kind kind, std::chrono::milliseconds duration) {
  std::unique_lock lock(mutex_);
  pauses_.push_back({kind, duration});
  changed_.notify_all();

  const auto times = at_once_.find(duration);
  const bool counted = times != at_once_.end() && times->second > 0;
  if (counted && times->second != kForever) --times->second;
  if (counted || everything_at_once_) {
    now_ += duration;
    lock.unlock();
    std::this_thread::yield();
    return;
  }

  parked_.push_back({duration, now_ + duration, false, false});
  const auto self = std::prev(parked_.end());
  changed_.wait(lock, [&self] { return self->released; });
  parked_.erase(self);
}

std::size_t ManualClock::ParkedLocked(std::chrono::milliseconds duration) const {
  return static_cast<std::size_t>(std::count_if(parked_.begin(), parked_.end(), [&](const ParkedThread& thread) {
    return thread.duration == duration && !thread.released && !thread.forgotten;
  }));
}

std::size_t ManualClock::BegunLocked(std::chrono::milliseconds duration) const {
  return static_cast<std::size_t>(std::count_if(pauses_.begin(), pauses_.end(),
                                                [&](const PauseRecord& pause) { return pause.duration == duration; }));
}

}  // namespace fenlux::testing

namespace fenlux::clock {

using testing::ManualClock;

std::chrono::steady_clock::time_point Now() { return ManualClock::Instance().Now(); }

void Pause(std::chrono::milliseconds duration) { ManualClock::Instance().Pause(ManualClock::Kind::kPause, duration); }

void PauseUntilWallClock(std::chrono::milliseconds interval) {
  ManualClock::Instance().Pause(ManualClock::Kind::kWallClock, interval);
}

}  // namespace fenlux::clock
