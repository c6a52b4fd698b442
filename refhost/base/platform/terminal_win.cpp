// Terminals on Windows, which are consoles.
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

std::size_t OutputWidth() {
  CONSOLE_SCREEN_BUFFER_INFO info{};
  if (::GetConsoleScreenBufferInfo(::GetStdHandle(STD_OUTPUT_HANDLE), &info) != 0) {
    return static_cast<std::size_t>(info.srWindow.Right - info.srWindow.Left) + 1;
  }
  return ConfiguredWidth();
}

}  // namespace fenlux::refhost
