// Sees to it that no connection is left without policy, nor with an old one.
//
// The module applies the policy when a connection gets ready and whenever it is told to. A connection that ends while
// its policy is still being applied can leave the next one without, and what it is told while it applies a policy is
// lost: the module then waits to be told again, which is its host's duty.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>

namespace fenlux::refhost {

// One thread at a time.
class PolicyWatch {
 public:
  using Clock = std::chrono::steady_clock;
  // How long a ready connection may be without policy before the module is told.
  static constexpr std::chrono::milliseconds kPatience{1000};

  // What the watch looks at, and what it does.
  struct Sight {
    std::function<bool()> isReady;                       // a connection is ready
    std::function<Clock::time_point()> connectionBegun;  // when the module began its present connection
    std::function<Clock::time_point()> policyChanged;    // when the policy was last replaced
    std::function<Clock::time_point()> policyRead;       // when the module last asked for the policy
    std::function<void()> notify;                        // has the policy applied again
  };

  explicit PolicyWatch(Sight seen) : sight(std::move(seen)) {}

  // Looks once; to be called several times a second.
  void Look(Clock::time_point now);
  // How often the module had to be told.
  std::uint64_t Reminders() const { return reminders; }

 private:
  Sight sight;
  bool waiting = false;  // a ready connection without policy was seen
  Clock::time_point since;
  std::uint64_t reminders = 0;
};

}  // namespace fenlux::refhost
