// The policy counts as applied to a connection once it was asked for after the connection's beginning and after the
// last change: the module asks for it on behalf of a ready connection only, and there is no other by then.
#include "refhost/app/policy_watch.h"

#include <algorithm>

namespace fenlux::refhost {

void PolicyWatch::Look(Clock::time_point now) {
  if (!sight.isReady() || sight.policyRead() > std::max(sight.connectionBegun(), sight.policyChanged())) {
    waiting = false;
    return;
  }
  if (!waiting) {
    waiting = true;
    since = now;
    return;
  }
  if (now - since < kPatience) return;
  since = now;
  ++reminders;
  sight.notify();
}

}  // namespace fenlux::refhost
