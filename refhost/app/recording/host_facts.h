// What the host gives the module, as a capture states it.
#pragma once

#include <string>

#include "refhost/base/report.h"
#include "refhost/services/configuration.h"
#include "refhost/services/processes/work_service.h"

namespace fenlux::refhost {

// This system's rules for paths, as facts name them: "windows" or "posix".
std::string PathPlatform();

// The settings that the module reads, and the state of the machine that its requests depend on: which paths of the
// policy are directories, and which processes are the system's. One line of JSON. Any thread.
std::string HostFacts(const FixedSettings& fixed, const LiveSettings& live, WorkService& work);

// An operation that the host runs, by the name and with the arguments that `ctl` has for it. One line of JSON.
std::string HostCall(const std::string& operation, const Report& arguments);

}  // namespace fenlux::refhost
