// The process id as the system gives it.
#include <windows.h>

#include "refhost/emulator/own_process.h"

namespace fenlux::refhost {

std::uint64_t OwnProcessId() { return ::GetCurrentProcessId(); }

}  // namespace fenlux::refhost
