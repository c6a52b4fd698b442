// fenlux-host with an allocation that fails: linked with the program's main, which is called HostMain here.
// FENLUX_FAILING_ALLOCATION is its number, counted over all threads from main on; 0 means none. When the process ends,
// it writes the number of allocations to the file that FENLUX_ALLOCATION_COUNT names.
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "refhost/app/platform/process_end.h"
#include "tests/support/failing_allocations.h"

namespace fenlux::testing {
namespace {

std::size_t Number(const char* name) {
  const char* const text = std::getenv(name);
  return text == nullptr ? 0 : static_cast<std::size_t>(std::strtoull(text, nullptr, 10));
}

// Writes without allocating.
void WriteCount() {
  const char* const file = std::getenv("FENLUX_ALLOCATION_COUNT");
  const int descriptor = file == nullptr ? -1 : ::open(file, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  if (descriptor < 0) return;
  ::dprintf(descriptor, "%zu\n", FailingAllocations::Count());
  ::close(descriptor);
}

}  // namespace
}  // namespace fenlux::testing

int HostMain(int argc, char** argv);

int main(int argc, char** argv) {
  using namespace fenlux::testing;
  const FailingAllocations failing(AllocatingThreads::kAll, Number("FENLUX_FAILING_ALLOCATION"));
  const int code = HostMain(argc, argv);
  WriteCount();
  return code;
}

// Replaces the program's own.
namespace fenlux::refhost {

void EndProcess(int code) {
  testing::WriteCount();
  ::_exit(code);
}

}  // namespace fenlux::refhost
