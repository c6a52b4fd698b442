// A second mount of a directory, which ends with the process.
#pragma once

#include <sched.h>
#include <sys/mount.h>

#include <stdexcept>
#include <string>

#include "refhost/base/platform/error_text.h"

namespace fenlux::bench {

// Makes later mounts of this process visible only to it and its children; they end with these processes. Call it before
// any thread is started. Throws std::runtime_error if the process may not mount.
inline void KeepMountsPrivate() {
  if (::unshare(CLONE_NEWNS) != 0 || ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) {
    throw std::runtime_error("no mounts: " + refhost::LastErrorText());
  }
}

// Mounts `directory` at `view`, an empty directory, until it is destroyed. Throws std::runtime_error if that fails.
class BindMount {
 public:
  BindMount(const std::string& directory, const std::string& view) : place(view) {
    if (::mount(directory.c_str(), place.c_str(), nullptr, MS_BIND, nullptr) != 0) {
      throw std::runtime_error("no mounts: " + refhost::LastErrorText());
    }
  }
  ~BindMount() { ::umount2(place.c_str(), MNT_DETACH); }
  BindMount(const BindMount&) = delete;
  BindMount& operator=(const BindMount&) = delete;

 private:
  const std::string place;
};

}  // namespace fenlux::bench
