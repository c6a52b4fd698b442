// TerminateProcess runs no code in the process. ExitProcess, and therefore exit and _Exit, would first end the other
// threads wherever they are and then call every library's entry point, which deadlocks if one of them held a lock.
#include "refhost/app/platform/process_end.h"

#include <windows.h>

namespace fenlux::refhost {

void EndProcess(int code) {
  // The call does not return for the current process, but it is not declared so.
  for (;;) ::TerminateProcess(::GetCurrentProcess(), static_cast<UINT>(code));
}

}  // namespace fenlux::refhost
