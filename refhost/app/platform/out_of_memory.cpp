// A terminate handler for std::bad_alloc, what it needs to recognize one, and the message.
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
thread_local bool allocationFailed = false;

// operator new calls this instead of throwing.
[[noreturn]] void OnFailedAllocation() {
  allocationFailed = true;
  throw std::bad_alloc();
}

bool MemoryRanOut() {
  const std::exception_ptr current = std::current_exception();
  // An optimized noexcept function terminates without catching the exception, so its type is not known.
  if (current == nullptr) return allocationFailed && std::uncaught_exceptions() > 0;
  try {
    std::rethrow_exception(current);
  } catch (const std::bad_alloc&) {
    return true;
  } catch (...) {  // a bug: the previous handler reports it
    return false;
  }
}

[[noreturn]] void OnTerminate() {
  if (MemoryRanOut()) EndProcess(ReportOutOfMemory());
  if (previousHandler != nullptr) previousHandler();
  std::abort();
}

}  // namespace

int ReportOutOfMemory() {
  std::fputs("fenlux-host: out of memory\n", stderr);
  return kExitNoMemory;
}

void HandleOutOfMemory() {
  previousHandler = std::set_terminate(OnTerminate);
  std::set_new_handler(OnFailedAllocation);
}

}  // namespace fenlux::refhost
