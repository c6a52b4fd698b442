// A terminate handler for std::bad_alloc, what it needs to recognize one, and the message.
#include "refhost/app/platform/out_of_memory.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <new>
#include <thread>

#include "refhost/app/exit_codes.h"
#include "refhost/app/platform/process_end.h"

namespace fenlux::refhost {
namespace {

std::terminate_handler previousHandler = nullptr;
// Not thread_local: on Windows, the first use of such a variable allocates.
std::atomic<std::thread::id> lastThreadWithoutMemory;

// operator new calls this when an allocation fails.
[[noreturn]] void OnFailedAllocation() {
  lastThreadWithoutMemory = std::this_thread::get_id();
  throw std::bad_alloc();
}

bool MemoryRanOut() {
  const std::exception_ptr current = std::current_exception();
  // An inlined noexcept function may terminate without catching the exception (GCC 12), so its type is not known. If
  // memory ran out earlier on this thread, another exception that ends this way is taken for it.
  if (current == nullptr) {
    return std::uncaught_exceptions() > 0 && lastThreadWithoutMemory.load() == std::this_thread::get_id();
  }
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
