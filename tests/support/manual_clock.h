// The module's clock under a test's control, linked instead of the system clock. Workers that pause are parked until
// the test advances the time, so a window of 600 seconds takes microseconds and no test sleeps.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <list>
#include <map>
#include <mutex>
#include <vector>

namespace fenlux::testing {

// The module's worker threads never end. A finished test leaves them parked here and keeps the objects they use alive;
// the clock itself is never destroyed.
class ManualClock {
 public:
  enum class Kind { kPause, kWallClock };

  struct PauseRecord {
    Kind kind;
    std::chrono::milliseconds duration;
    bool operator==(const PauseRecord&) const = default;
  };

  static ManualClock& Instance();

  // Call at the start of a test: clears the recordings, leaves parked threads parked for good, and makes every pause
  // park.
  void Reset();
  // Makes pauses of this duration advance the time by it and return at once; after `times` of them, they park again.
  void PassAtOnce(std::chrono::milliseconds duration, std::size_t times = kForever);
  // Makes every pause advance the time by its duration and return at once.
  void PassEverything();
  // Advances the time and releases the threads whose pause is over.
  void Advance(std::chrono::milliseconds duration);
  // Waits until `count` threads are parked with this duration. False: timed out.
  bool AwaitParked(std::chrono::milliseconds duration, std::size_t count = 1);
  // Waits until `count` pauses of this duration have begun since Reset, parked or not. False: timed out.
  bool AwaitPauses(std::chrono::milliseconds duration, std::size_t count);
  std::size_t Parked(std::chrono::milliseconds duration);
  // All pauses since Reset, in order, except those of an hour or more, which belong to refresh threads.
  std::vector<PauseRecord> Pauses();

  // What the module calls.
  std::chrono::steady_clock::time_point Now();
  void Pause(Kind kind, std::chrono::milliseconds duration);

 private:
  static constexpr std::size_t kForever = ~std::size_t{0};

  struct ParkedThread {
    std::chrono::milliseconds duration;
    std::chrono::steady_clock::time_point deadline;
    bool released;
    bool forgotten;
  };

  ManualClock() = default;
  std::size_t ParkedLocked(std::chrono::milliseconds duration) const;
  std::size_t BegunLocked(std::chrono::milliseconds duration) const;

  std::mutex mutex;
  std::condition_variable changed;
  std::chrono::steady_clock::time_point now{std::chrono::hours(1)};
  std::list<ParkedThread> parked;
  std::map<std::chrono::milliseconds, std::size_t> atOnce;
  bool everythingAtOnce = false;
  std::vector<PauseRecord> pauses;
};

}  // namespace fenlux::testing
