// What the program does when it runs out of memory.
#pragma once

namespace fenlux::refhost {

// Reports on standard error that memory ran out, and returns the exit code for it. Allocates nothing.
int ReportOutOfMemory();

// Installs the terminate handler and the new handler: from now on, a std::bad_alloc that leaves a noexcept function is
// reported, and the process ends with kExitNoMemory instead of aborting. The TOML library has such functions. Call
// once, before threads start.
void HandleOutOfMemory();

}  // namespace fenlux::refhost
