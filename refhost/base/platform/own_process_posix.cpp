// The current process on Linux.
#include <unistd.h>

#include <boost/filesystem/operations.hpp>

#include "refhost/base/platform/own_process.h"

namespace fenlux::refhost {

std::uint64_t OwnProcessId() { return static_cast<std::uint64_t>(::getpid()); }

boost::filesystem::path OwnProgramPath() {
  boost::system::error_code error;
  return boost::filesystem::read_symlink("/proc/self/exe", error);
}

}  // namespace fenlux::refhost
