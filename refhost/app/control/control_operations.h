// The operations that an operator can run on a running host: their names, arguments and actions.
#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "refhost/app/control/control_arguments.h"
#include "refhost/app/control/module_owner.h"
#include "refhost/base/report.h"

namespace fenlux::refhost {

struct ControlOperation {
  std::string_view name;  // one word, or two: group and operation
  std::string_view help;
  std::vector<ControlArgument> arguments;
  // Returns what to show; empty if there is nothing to show. Throws ControlRefusal, and whatever the module throws.
  Report (*run)(ModuleOwner& host, const ControlArguments& arguments);
  // Does not call the module, so captures leave it out. Requires a ReferenceHost.
  bool hostOnly = false;
  // The result as text for people; null: AlignedText.
  std::string (*text)(const Report& result) = nullptr;
  // The exit code of `ctl`; null: 0.
  int (*exitCode)(const Report& result) = nullptr;
};

// All of them, in the order in which help shows them.
std::span<const ControlOperation> ControlOperations();
// Those that concern the host itself, which come first.
std::span<const ControlOperation> HostOperations();

// Null if no operation has the name.
const ControlOperation* FindControlOperation(std::string_view name);

// The help of a group of two-word operations; empty if there is no such group.
std::string_view ControlGroupHelp(std::string_view group);

}  // namespace fenlux::refhost
