// Ends a process whose threads cannot be joined.
#pragma once

namespace fenlux::refhost {

// Ends the process immediately: no destructors, no exit handlers, no unloading of libraries. Flush all output before.
// Any thread.
[[noreturn]] void EndProcess(int code);

}  // namespace fenlux::refhost
