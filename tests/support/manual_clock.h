// Time as a test tells it: the module's clock, linked in place of the system's. Workers that pause are parked until the
// test advances the time, so that a window of 600 seconds takes microseconds and no test sleeps.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <list>
#include <map>
#include <mutex>
#include <vector>

namespace fenlux::testing {

// The module's worker threads never end. A test that is done with them leaves them parked here, with the objects that
// they use alive; the clock itself is never destroyed.
class ManualClock {
 public:
  enum class Kind { kPause, kWallClock };

  struct PauseRecord {
    Kind kind;
    std::chrono::milliseconds duration;
    bool operator==(const PauseRecord&) const = default;
  };

  static ManualClock& Instance();

  // For the start of a test: forgets what was recorded; those parked so far stay parked for good; every pause parks.
  void Reset();
  // Pauses of this duration return at once, with the time advanced by it; after `times` of them they park again.
  void PassAtOnce(std::chrono::milliseconds duration, std::size_t times = kForever);
  // Every pause returns at once, with the time advanced by it.
  void PassEverything();
  // Moves the time, and lets those go whose pause is over.
  void Advance(std::chrono::milliseconds duration);
  // Blocks until `count` threads stand parked with this duration; false when that does not come about in a minute.
  bool AwaitParked(std::chrono::milliseconds duration, std::size_t count = 1);
  // Blocks until `count` pauses of this duration have begun since Reset, parked or not; false as above.
  bool AwaitPauses(std::chrono::milliseconds duration, std::size_t count);
  std::size_t Parked(std::chrono::milliseconds duration);
  // Every pause since Reset, in order, save those of an hour and more: refresh threads beside what is tested.
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
