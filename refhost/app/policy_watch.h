// Ensures that every connection gets the current policy.
//
// The module applies the policy when a connection becomes ready and whenever NotifyPolicyChanged is called. Two things
// can leave a connection without it: a connection may end while its policy is still being applied, and a notification
// that arrives while the policy is applied is lost. The module then waits for another notification, which the host
// must send.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <utility>

namespace fenlux::refhost {

// One thread at a time.
class PolicyWatch {
 public:
  using Clock = std::chrono::steady_clock;
  // How long a ready connection may be without the policy before the watch notifies the module.
  static constexpr std::chrono::milliseconds kPolicyTimeout{1000};

  struct Callbacks {
    std::function<bool()> isReady;                         // whether a connection is ready
    std::function<Clock::time_point()> connectionStarted;  // when the module started the current connection
    std::function<Clock::time_point()> policyChanged;      // when the policy was last replaced
    std::function<Clock::time_point()> policyRead;         // when the module last read the policy
    std::function<void()> notify;                          // makes the module apply the policy again
  };

  explicit PolicyWatch(Callbacks hostCallbacks) : callbacks(std::move(hostCallbacks)) {}

  // Checks once. Call it several times a second.
  void Poll(Clock::time_point now);
  // How often the watch notified the module.
  std::uint64_t NotificationCount() const { return notificationCount; }

 private:
  Callbacks callbacks;
  bool pending = false;  // a ready connection has not read the policy yet
  Clock::time_point pendingSince;
  std::uint64_t notificationCount = 0;
};

}  // namespace fenlux::refhost
