// A connection has the policy once the module has read it after both the start of the connection and the last change:
// the module reads it only for a ready connection, and no other connection exists then.
#include "refhost/app/policy_watch.h"

#include <algorithm>

namespace fenlux::refhost {

void PolicyWatch::Poll(Clock::time_point now) {
  if (!callbacks.isReady() ||
      callbacks.policyRead() > std::max(callbacks.connectionStarted(), callbacks.policyChanged())) {
    pending = false;
    return;
  }
  if (!pending) {
    pending = true;
    pendingSince = now;
    return;
  }
  if (now - pendingSince < kPolicyTimeout) return;
  pendingSince = now;
  ++notificationCount;
  callbacks.notify();
}

}  // namespace fenlux::refhost
