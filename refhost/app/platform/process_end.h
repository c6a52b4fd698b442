// The way out of a process whose threads cannot be joined. The bodies are the platform's.
#pragma once

namespace fenlux::refhost {

// Ends the process at once with the code: nothing is unwound, no library is told. What has to reach the outside was
// flushed before. Any thread.
[[noreturn]] void EndProcess(int code);

}  // namespace fenlux::refhost
