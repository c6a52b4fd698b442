// Parks threads that pause, and releases them when the clock reaches the end of their pause.
#include "tests/support/manual_clock.h"

#include <algorithm>
#include <thread>

#include "common/clock.h"
#include "tests/support/allocation_exemption.h"
#include "tests/support/test_timeout.h"

namespace fenlux::testing {
ManualClock& ManualClock::Instance() {
  static ManualClock* const clock = new ManualClock();  // outlives the parked threads
  return *clock;
}

void ManualClock::Reset() {
  const std::lock_guard lock(mutex);
  for (ParkedThread& thread : parked) thread.forgotten = true;
  atOnce.clear();
  everythingAtOnce = false;
  pauses.clear();
}

void ManualClock::PassAtOnce(std::chrono::milliseconds duration, std::size_t times) {
  const std::lock_guard lock(mutex);
  atOnce[duration] = times;
}

void ManualClock::PassEverything() {
  const std::lock_guard lock(mutex);
  everythingAtOnce = true;
}

void ManualClock::Advance(std::chrono::milliseconds duration) {
  const std::lock_guard lock(mutex);
  now += duration;
  for (ParkedThread& thread : parked) {
    if (!thread.forgotten && thread.deadline <= now) thread.released = true;
  }
  changed.notify_all();
}

bool ManualClock::AwaitParked(std::chrono::milliseconds duration, std::size_t count) {
  std::unique_lock lock(mutex);
  return changed.wait_for(lock, kTestTimeout, [&] { return ParkedLocked(duration) >= count; });
}

bool ManualClock::AwaitPauses(std::chrono::milliseconds duration, std::size_t count) {
  std::unique_lock lock(mutex);
  return changed.wait_for(lock, kTestTimeout, [&] { return BegunLocked(duration) >= count; });
}

std::size_t ManualClock::Parked(std::chrono::milliseconds duration) {
  const std::lock_guard lock(mutex);
  return ParkedLocked(duration);
}

std::vector<ManualClock::PauseRecord> ManualClock::Pauses() {
  std::vector<PauseRecord> shown;
  const std::lock_guard lock(mutex);
  std::copy_if(pauses.begin(), pauses.end(), std::back_inserter(shown),
               [](const PauseRecord& pause) { return pause.duration < std::chrono::hours(1); });
  return shown;
}

std::chrono::steady_clock::time_point ManualClock::Now() {
  const std::lock_guard lock(mutex);
  return now;
}

void ManualClock::Pause(Kind kind, std::chrono::milliseconds duration) {
  const AllocationExemption exempt;
  std::unique_lock lock(mutex);
  pauses.push_back({kind, duration});
  changed.notify_all();

  const auto times = atOnce.find(duration);
  const bool counted = times != atOnce.end() && times->second > 0;
  if (counted && times->second != kForever) --times->second;
  if (counted || everythingAtOnce) {
    now += duration;
    lock.unlock();
    std::this_thread::yield();
    return;
  }

  parked.push_back({duration, now + duration, false, false});
  const auto self = std::prev(parked.end());
  changed.wait(lock, [&self] { return self->released; });
  parked.erase(self);
}

std::size_t ManualClock::ParkedLocked(std::chrono::milliseconds duration) const {
  return static_cast<std::size_t>(std::count_if(parked.begin(), parked.end(), [&](const ParkedThread& thread) {
    return thread.duration == duration && !thread.released && !thread.forgotten;
  }));
}

std::size_t ManualClock::BegunLocked(std::chrono::milliseconds duration) const {
  return static_cast<std::size_t>(std::count_if(pauses.begin(), pauses.end(),
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
