// The operations that make the module send every command of the protocol.
#pragma once

#include <string_view>
#include <vector>

#include "refhost/app/control/control_arguments.h"

namespace fenlux::refhost {

// An operation, with the name and arguments that `ctl` uses.
struct DriveStep {
  std::string_view operation;
  ControlArguments arguments;
};

// In the order in which they are sent. The last steps restore the switches and modes. An emulated driver also gets the
// id of a system process; a real driver already has the ids of the real ones, which must not change.
std::vector<DriveStep> DriveSteps(bool emulated);

}  // namespace fenlux::refhost
