// The event source that passes the kernel's permission events to the module, and the module's verdicts to the kernel.
#pragma once

#include <memory>

#include "refhost/emulator/driver/emulated_driver.h"
#include "refhost/emulator/driver/shared/event_source.h"
#include "refhost/emulator/emulator_settings.h"

namespace fenlux::refhost {

// The module receives for
//   a file that is opened                code 4097
//   a file that is opened to be run      code 4097, condition flag A
//   a file that is read                  code 4098
// with the process id, the path as /proc shows it, and the kernel's event mask as the first access value. The variant
// flag is 0: the kernel does not say how a file is opened.
//
// Throws std::runtime_error with the reason if the system has no such events, the process may not use them, or a
// directory of the settings cannot be watched.
std::shared_ptr<EventSource> MakeFanotifySource(std::shared_ptr<EmulatedDriver> driver,
                                                const KernelEventSettings& settings, UnjudgedPolicy unjudged);

}  // namespace fenlux::refhost
