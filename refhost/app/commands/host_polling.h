// Polling of a host beside its main thread.
#pragma once

#include <chrono>
#include <functional>

namespace fenlux::refhost {

inline constexpr std::chrono::milliseconds kPollInterval{100};

// Calls `poll` at every interval, on its own thread, until the process ends; whatever it uses must live as long. The
// main thread must not do this: a poll may wait for the module, which waits for its driver, and a file system may never
// answer. A poll that runs out of memory is skipped. Throws std::runtime_error if there is no thread.
void StartPolling(std::function<void()> poll);

}  // namespace fenlux::refhost
