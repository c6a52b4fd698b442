// What the host provides to the module, as facts in a capture.
#pragma once

#include <string>

#include "refhost/base/report.h"
#include "refhost/services/configuration.h"
#include "refhost/services/processes/work_service.h"

namespace fenlux::refhost {

// This system's path syntax as facts name it: "windows" or "posix".
std::string PathPlatform();

// The settings that the module reads, and the state of the machine that its requests depend on: which paths of the
// policy are directories, and which processes are the system's. One line of JSON. Any thread.
std::string HostFacts(const FixedSettings& fixed, const LiveSettings& live, WorkService& work);

// An operation that the host runs, with the name and arguments that `ctl` uses. One line of JSON.
std::string HostCall(const std::string& operation, const Report& arguments);

}  // namespace fenlux::refhost
