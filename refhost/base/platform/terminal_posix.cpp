// Terminals by descriptor.
#include <unistd.h>

#include "refhost/base/platform/terminal.h"

namespace fenlux::refhost {

bool OutputIsTerminal() { return ::isatty(STDOUT_FILENO) == 1; }
bool ErrorIsTerminal() { return ::isatty(STDERR_FILENO) == 1; }

}  // namespace fenlux::refhost
