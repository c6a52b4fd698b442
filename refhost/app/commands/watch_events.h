// The operator's side of `ctl watch`.
#pragma once

#include <functional>
#include <string>

#include "refhost/app/control/control_protocol.h"

namespace fenlux::refhost {

// Shows events until a signal ends the program, or the host ends. Each call of `send` sends a request to the host and
// returns its answer; it throws ControlChannelError. Returns the exit code.
int WatchEvents(ControlRequest request, bool json,
                const std::function<ControlAnswer(const ControlRequest& request)>& send);

}  // namespace fenlux::refhost
