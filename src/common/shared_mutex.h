// A reader-writer mutex and its scoped locks, with thread-safety annotations that clang checks.
#pragma once

#include <boost/thread/lock_types.hpp>
#include <boost/thread/shared_mutex.hpp>

#include "common/random_yield.h"
#include "common/thread_annotations.h"

namespace fenlux {

// Many readers or one writer; not recursive.
class FENLUX_CAPABILITY("shared_mutex") SharedMutex {
 public:
  SharedMutex() = default;
  SharedMutex(const SharedMutex&) = delete;
  SharedMutex& operator=(const SharedMutex&) = delete;

 private:
  friend class SharedLock;
  friend class ExclusiveLock;
  boost::shared_mutex& Native() {
    YieldAtRandom();
    return native;
  }

  boost::shared_mutex native;
};

// Holds a mutex for reading from construction to the end of the scope.
class FENLUX_SCOPED_CAPABILITY SharedLock {
 public:
  explicit SharedLock(SharedMutex& mutex) FENLUX_ACQUIRE_SHARED(mutex) : lock(mutex.Native()) {}
  ~SharedLock() FENLUX_RELEASE() = default;
  SharedLock(const SharedLock&) = delete;
  SharedLock& operator=(const SharedLock&) = delete;

 private:
  boost::shared_lock<boost::shared_mutex> lock;
};

// Holds a mutex for writing from construction to the end of the scope.
class FENLUX_SCOPED_CAPABILITY ExclusiveLock {
 public:
  explicit ExclusiveLock(SharedMutex& mutex) FENLUX_ACQUIRE(mutex) : lock(mutex.Native()) {}
  ~ExclusiveLock() FENLUX_RELEASE() = default;
  ExclusiveLock(const ExclusiveLock&) = delete;
  ExclusiveLock& operator=(const ExclusiveLock&) = delete;

 private:
  boost::unique_lock<boost::shared_mutex> lock;
};

}  // namespace fenlux
