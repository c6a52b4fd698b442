// The locks of the module with their thread-safety annotations: the standard mutex, held in scopes.
#pragma once

#include <condition_variable>
#include <mutex>

#include "common/thread_annotations.h"

namespace fenlux {

// A plain, non-recursive mutex.
class FENLUX_CAPABILITY("mutex") Mutex {
 public:
  Mutex() = default;
  Mutex(const Mutex&) = delete;
  Mutex& operator=(const Mutex&) = delete;

  // For std::unique_lock where a lock is tried and not waited for.
  std::mutex& Native() { return native_; }

 private:
  std::mutex native_;
};

// Holds a mutex from construction to the end of the scope.
class FENLUX_SCOPED_CAPABILITY MutexLock {
 public:
  explicit MutexLock(Mutex& mutex) FENLUX_ACQUIRE(mutex) : lock_(mutex.Native()) {}
  ~MutexLock() FENLUX_RELEASE() = default;
  MutexLock(const MutexLock&) = delete;
  MutexLock& operator=(const MutexLock&) = delete;

  // Gives the mutex up, waits once for a notification (or a spurious wake-up) and takes it again.
  void WaitOnce(std::condition_variable& wakeup) { wakeup.wait(lock_); }

 private:
  std::unique_lock<std::mutex> lock_;
};

}  // namespace fenlux
