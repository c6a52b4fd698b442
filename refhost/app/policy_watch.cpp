// The policy counts as applied to a connection once it was asked for after the connection's beginning and after the
// last change: the module asks for it on behalf of a ready connection only, and there is no other by then.
#include "refhost/app/policy_watch.h"

#include <algorithm>

namespace fenlux::refhost {

void PolicyWatch::Look(Clock::time_point now) {
  if (!sight_.isReady() || sight_.policyRead() > std::max(sight_.connectionBegun(), sight_.policyChanged())) {
    waiting_ = false;
    return;
  }
  if (!waiting_) {
    waiting_ = true;
    since_ = now;
    return;
  }
  if (now - since_ < kPatience) return;
  since_ = now;
  ++reminders_;
  sight_.notify();
}

}  // namespace fenlux::refhost
