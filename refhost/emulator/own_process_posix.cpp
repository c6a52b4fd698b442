// The process id as the system gives it.
#include <unistd.h>

#include "refhost/emulator/own_process.h"

namespace fenlux::refhost {

std::uint64_t OwnProcessId() { return static_cast<std::uint64_t>(::getpid()); }

}  // namespace fenlux::refhost
