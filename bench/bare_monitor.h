// A minimal monitor of permission events: reads each event and allows its operation.
#pragma once

#include <fcntl.h>
#include <poll.h>
#include <sys/fanotify.h>
#include <unistd.h>

#include <cstdint>
#include <functional>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>

#include "refhost/base/platform/descriptor_posix.h"
#include "refhost/base/platform/error_text.h"

namespace fenlux::bench {

// Watches the files of one directory on threads of its own, until the process ends.
class BareMonitor {
 public:
  // Called with each event's open file before its operation is allowed, on any of the threads; may be empty.
  using Look = std::function<void(int file)>;

  // Throws std::runtime_error if the system has no permission events or the process may not receive them.
  BareMonitor(const std::string& directory, Look lookAtFile, unsigned threads = 1)
      : group(::fanotify_init(FAN_CLASS_CONTENT | FAN_CLOEXEC | FAN_NONBLOCK | FAN_UNLIMITED_QUEUE,
                              O_RDONLY | O_CLOEXEC | O_LARGEFILE | O_NONBLOCK)),
        look(std::move(lookAtFile)) {
    if (!group.Valid() || ::fanotify_mark(group.Get(), FAN_MARK_ADD | FAN_MARK_ONLYDIR,
                                          FAN_OPEN_PERM | FAN_EVENT_ON_CHILD, AT_FDCWD, directory.c_str()) != 0) {
      throw std::runtime_error("no permission events: " + refhost::LastErrorText());
    }
    for (unsigned i = 0; i < threads; ++i) std::thread([this] { Run(); }).detach();
  }
  BareMonitor(const BareMonitor&) = delete;
  BareMonitor& operator=(const BareMonitor&) = delete;

 private:
  [[noreturn]] void Run() {
    pollfd polled{group.Get(), POLLIN, 0};
    for (;;) {
      ::poll(&polled, 1, -1);
      fanotify_event_metadata event{};
      if (::read(group.Get(), &event, sizeof(event)) != static_cast<ssize_t>(sizeof(event))) continue;
      const refhost::Descriptor file(event.fd);
      if (look) look(event.fd);
      const fanotify_response response{event.fd, FAN_ALLOW};
      [[maybe_unused]] const ssize_t written = ::write(group.Get(), &response, sizeof(response));
    }
  }

  const refhost::Descriptor group;
  const Look look;
};

}  // namespace fenlux::bench
