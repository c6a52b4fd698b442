// Polls a host on a separate thread.
#pragma once

#include <chrono>
#include <functional>

namespace fenlux::refhost {

inline constexpr std::chrono::milliseconds kPollInterval{100};

// Calls `poll` once per interval, on a new thread, until the process ends; everything it uses must live as long. The
// main thread must not poll: a poll may wait for the module, which waits for its driver, or for a file system that
// never answers. A poll that runs out of memory is skipped. Throws std::runtime_error if the thread cannot be started.
void StartPolling(std::function<void()> poll);

}  // namespace fenlux::refhost
