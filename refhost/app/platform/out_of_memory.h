// What the program does when there is not enough memory to go on.
#pragma once

namespace fenlux::refhost {

// Writes to standard error that memory ran out; returns the program's exit code for that. Allocates nothing.
int ReportOutOfMemory();

// From here on, a std::bad_alloc that leaves a function that must not throw is reported, and the process ends with
// kExitNoMemory instead of an abort. The library that reads TOML has such functions. Call once, before threads start.
void HandleOutOfMemory();

}  // namespace fenlux::refhost
