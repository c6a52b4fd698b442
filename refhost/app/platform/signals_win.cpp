// Ctrl+C, Ctrl+Break, closing the console, logging off and shutting down stop the host. Windows has no signals for
// reloading or printing the summary; the control channel does both.
#include "refhost/app/platform/signals.h"

#include <windows.h>

namespace fenlux::refhost {
namespace {

// Set by every request to stop. Never closed, because the handler may run until the process ends.
HANDLE StopEvent() {
  static const HANDLE event = ::CreateEventW(nullptr, FALSE, FALSE, nullptr);
  return event;
}

// Runs on a thread that the system creates for the call.
BOOL WINAPI OnConsoleControl(DWORD control) {
  ::SetEvent(StopEvent());
  // After these events the system ends the process as soon as the handler returns, or after some seconds. Do not
  // return, so that the host has these seconds to stop.
  if (control == CTRL_CLOSE_EVENT || control == CTRL_LOGOFF_EVENT || control == CTRL_SHUTDOWN_EVENT) {
    ::Sleep(INFINITE);
  }
  return TRUE;
}

}  // namespace

void BlockSignals() {
  StopEvent();
  ::SetConsoleCtrlHandler(&OnConsoleControl, TRUE);
}

HostSignal WaitForSignal(std::chrono::milliseconds timeout) {
  const DWORD result = ::WaitForSingleObject(StopEvent(), static_cast<DWORD>(timeout.count()));
  return result == WAIT_OBJECT_0 ? HostSignal::kStop : HostSignal::kNone;
}

std::string SignalHelp() {
  return "Ctrl+C and Ctrl+Break stop the host. `ctl reload` reloads the configuration,\n"
         "`ctl summary` shows the summary so far.\n";
}

}  // namespace fenlux::refhost
