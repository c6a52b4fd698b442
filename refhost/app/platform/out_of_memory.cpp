// A terminate handler for std::bad_alloc, and the message.
#include "refhost/app/platform/out_of_memory.h"

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <new>

#include "refhost/app/exit_codes.h"
#include "refhost/app/platform/process_end.h"

namespace fenlux::refhost {
namespace {

std::terminate_handler previousHandler = nullptr;

[[noreturn]] void OnTerminate() {
  try {
    if (const std::exception_ptr current = std::current_exception(); current != nullptr) {
      std::rethrow_exception(current);
    }
  } catch (const std::bad_alloc&) {
    EndProcess(ReportOutOfMemory());
  } catch (...) {  // a bug: the previous handler reports it
  }
  if (previousHandler != nullptr) previousHandler();
  std::abort();
}

}  // namespace

int ReportOutOfMemory() {
  std::fputs("fenlux-host: out of memory\n", stderr);
  return kExitNoMemory;
}

void HandleOutOfMemory() { previousHandler = std::set_terminate(OnTerminate); }

}  // namespace fenlux::refhost
