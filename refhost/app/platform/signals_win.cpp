// Ctrl+C, Ctrl+Break and the end of the console, the login session or the system stop the host. Windows has no signals
// that reload or ask for the summary: the control channel does both.
#include "refhost/app/platform/signals.h"

#include <windows.h>

namespace fenlux::refhost {
namespace {

// Set by every call to stop. Made once and kept until the process ends, as the handler may run until then.
HANDLE StopEvent() {
  static const HANDLE event = ::CreateEventW(nullptr, FALSE, FALSE, nullptr);
  return event;
}

// Runs on a thread that the system makes for it.
BOOL WINAPI OnConsoleControl(DWORD control) {
  ::SetEvent(StopEvent());
  // After these the system ends the process as soon as the handler returns; until then it grants some seconds, which
  // the host has for its stop.
  if (control == CTRL_CLOSE_EVENT || control == CTRL_LOGOFF_EVENT || control == CTRL_SHUTDOWN_EVENT) {
    ::Sleep(INFINITE);
  }
  return TRUE;
}

}  // namespace

void HoldSignals() {
  StopEvent();
  ::SetConsoleCtrlHandler(&OnConsoleControl, TRUE);
}

HostSignal WaitForSignal(std::chrono::milliseconds limit) {
  const DWORD waited = ::WaitForSingleObject(StopEvent(), static_cast<DWORD>(limit.count()));
  return waited == WAIT_OBJECT_0 ? HostSignal::kStop : HostSignal::kNone;
}

std::string SignalHelp() {
  return "Ctrl+C and Ctrl+Break end the run; `ctl reload` reads the configuration again, `ctl summary` shows the "
         "summary\nso far.\n";
}

}  // namespace fenlux::refhost
