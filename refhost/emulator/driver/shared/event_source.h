// The driver's interface to the source of its notifications: a scenario, or the kernel's permission events.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

namespace fenlux::refhost {

// A directory that a source should watch.
struct WatchState {
  std::string directory;
  bool watched = false;
  std::string reason;  // why it is not watched; empty if it is

  bool operator==(const WatchState&) const = default;
};

class EventSource {
 public:
  virtual ~EventSource() = default;

  // Starts the delivery threads. Once.
  virtual void Start() = 0;
  // Sets the directories that the module wants watched. Calls may arrive out of order: the highest revision is the
  // current one. Any thread; must not block.
  virtual void Watch(std::uint64_t revision, const std::vector<std::string>& directories) = 0;
  // The directories that it should watch, sorted by name. Any thread; does not wait for file systems.
  virtual std::vector<WatchState> Watches() const { return {}; }
  // Called at least twice per deadline, each time after the overdue answers have been taken. Watchdog thread; must
  // return within milliseconds, so that deadlines are kept. Returns true if there is more to do: it is then called
  // again without a pause, once more after the overdue answers have been taken.
  virtual bool OnWatchdog() = 0;
  // Allows all queued operations and ends the threads. Leaves behind threads that do not end within `grace`. Called
  // once, after the driver has begun to stop.
  virtual void Stop(std::chrono::milliseconds grace) = 0;
};

}  // namespace fenlux::refhost
