// Terminals are consoles.
#include <windows.h>

#include "refhost/base/platform/terminal.h"

namespace fenlux::refhost {
namespace {

bool IsConsole(DWORD which) {
  DWORD mode = 0;
  return ::GetConsoleMode(::GetStdHandle(which), &mode) != 0;
}

}  // namespace

bool OutputIsTerminal() { return IsConsole(STD_OUTPUT_HANDLE); }
bool ErrorIsTerminal() { return IsConsole(STD_ERROR_HANDLE); }

}  // namespace fenlux::refhost
