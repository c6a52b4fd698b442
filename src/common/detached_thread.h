// Starts threads that nobody joins.
#pragma once

#include <future>
#include <thread>
#include <utility>

namespace fenlux {

// Starts a thread that runs `body`, detaches it, and returns its id. Throws what std::thread throws. Any thread.
//
// The body waits until the thread is detached. Otherwise it could end first, and with the Windows threads library of
// MinGW-w64 (winpthreads 10), detaching a thread that is just ending can make the next new thread end without running.
template <typename Body>
std::thread::id StartDetachedThread(Body&& body) {
  std::promise<void> detached;  // not a std::latch: with libstdc++ 12 on Windows, its waiters can miss the release
  std::thread thread([started = detached.get_future(), run = std::forward<Body>(body)]() mutable {
    started.wait();
    run();
  });
  const std::thread::id id = thread.get_id();
  thread.detach();
  detached.set_value();
  return id;
}

}  // namespace fenlux
