// The event source that hands the module the kernel's own permission events, and the kernel the module's verdicts.
#pragma once

#include <memory>

#include "refhost/emulator/driver/driver_core.h"
#include "refhost/emulator/emulator_settings.h"
#include "refhost/emulator/sources/event_source.h"

namespace fenlux::refhost {

// What the module is told of a kernel event:
//   opened               code 4097
//   opened to be run     code 4097, condition flag A
//   read                 code 4098
// with the process id, the path as /proc names it, and the kernel's event mask as first access value. The variant flag
// is 0: the kernel does not say how a file is opened.
//
// Throws std::runtime_error that says what is missing where the system has no such events, the process may not have
// them, or a directory of the settings cannot be watched.
std::shared_ptr<EventSource> MakeFanotifySource(std::shared_ptr<DriverCore> core, const KernelEventSettings& settings);

}  // namespace fenlux::refhost
