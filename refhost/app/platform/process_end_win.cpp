// An ordinary exit, even the runtime's short one, ends all other threads wherever they are and then runs every
// library's leave-taking, which waits for ever on a lock that one of them held.
#include "refhost/app/platform/process_end.h"

#include <windows.h>

#include <cstdlib>

namespace fenlux::refhost {

void EndProcess(int code) {
  ::TerminateProcess(::GetCurrentProcess(), static_cast<UINT>(code));
  std::abort();
}

}  // namespace fenlux::refhost
