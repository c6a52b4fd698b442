// Terminals on POSIX systems, by file descriptor.
#include <sys/ioctl.h>
#include <unistd.h>

#include "refhost/base/platform/terminal.h"

namespace fenlux::refhost {

bool OutputIsTerminal() { return ::isatty(STDOUT_FILENO) == 1; }
bool ErrorIsTerminal() { return ::isatty(STDERR_FILENO) == 1; }

std::size_t OutputWidth() {
  winsize size{};
  if (::ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0) return size.ws_col;
  return ConfiguredWidth();
}

}  // namespace fenlux::refhost
