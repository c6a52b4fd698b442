// The standard mutex and its scoped lock, with thread-safety annotations that clang checks.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>

#include "common/random_yield.h"
#include "common/thread_annotations.h"

namespace fenlux {

// A plain, non-recursive mutex.
class FENLUX_CAPABILITY("mutex") Mutex {
 public:
  Mutex() = default;
  Mutex(const Mutex&) = delete;
  Mutex& operator=(const Mutex&) = delete;

  // For a try-lock with std::unique_lock; the analysis does not see it.
  std::mutex& Native() {
    YieldAtRandom();
    return native;
  }

 private:
  std::mutex native;
};

// Holds a mutex from construction to the end of the scope.
//
// The waits have no predicate, because the analysis does not follow a lambda: write
//   while (!condition) lock.Wait(changed);
class FENLUX_SCOPED_CAPABILITY MutexLock {
 public:
  explicit MutexLock(Mutex& mutex) FENLUX_ACQUIRE(mutex) : lock(mutex.Native()) {}
  ~MutexLock() FENLUX_RELEASE() = default;
  MutexLock(const MutexLock&) = delete;
  MutexLock& operator=(const MutexLock&) = delete;

  // Releases the mutex, waits for one notification or spurious wakeup, and takes the mutex again.
  void Wait(std::condition_variable& wakeup) {
    YieldAtRandom();
    wakeup.wait(lock);
    YieldAtRandom();
  }
  // Like Wait, with a time limit; returns false if the limit passed.
  bool WaitUntil(std::condition_variable& wakeup, std::chrono::steady_clock::time_point deadline) {
    YieldAtRandom();
    const std::cv_status status = wakeup.wait_until(lock, deadline);
    YieldAtRandom();
    return status == std::cv_status::no_timeout;
  }

 private:
  std::unique_lock<std::mutex> lock;
};

}  // namespace fenlux
