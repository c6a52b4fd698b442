// Where the notifications come from: a scenario, or the kernel's own permission events.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

namespace fenlux::refhost {

class EventSource {
 public:
  virtual ~EventSource() = default;

  // Starts the delivery threads. Once.
  virtual void Start() = 0;
  // The directories that the module wants watched have changed; calls may overtake each other, and the highest
  // revision holds. Any thread; must not block.
  virtual void Watch(std::uint64_t revision, const std::vector<std::string>& directories) = 0;
  // Regularly, at least twice within every deadline, after the overdue answers were taken. Watchdog; must not block.
  virtual void OnWatchdog() = 0;
  // Lets everything through and ends the threads; those that do not end in the given time are left behind. Called
  // after the deliverers have been told to stop. Once.
  virtual void Stop(std::chrono::milliseconds grace) = 0;
};

}  // namespace fenlux::refhost
