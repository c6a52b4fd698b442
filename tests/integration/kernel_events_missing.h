// Whether the machine lets a test receive the kernel's permission events.
#pragma once

#include <fcntl.h>
#include <sys/fanotify.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>

namespace fenlux::testing {

// Why the kernel delivers no permission events here; empty if it does.
inline std::string KernelEventsMissing() {
  const int group = ::fanotify_init(FAN_CLASS_CONTENT | FAN_CLOEXEC, O_RDONLY);
  if (group < 0) return std::string("the kernel delivers no permission events here: ") + std::strerror(errno);
  ::close(group);
  return {};
}

}  // namespace fenlux::testing
