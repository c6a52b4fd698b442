// A mutex for data that many threads read often and few change, with thread-safety annotations that clang checks.
#pragma once

#include <array>
#include <cstddef>
#include <mutex>
#include <tuple>

#include "common/random_yield.h"
#include "common/thread_annotations.h"
#include "common/thread_group.h"

namespace fenlux {

// A mutex for each group of threads, so that readers of different groups do not write to the same memory. (Each is on a
// cache line of its own; with MinGW a mutex is only a handle, and what it refers to may share a line.) A reader takes
// the mutex of its group; it keeps the other readers of the group waiting, so it may do little more than copy a handle.
// A slow reader takes a mutex that no group has. A writer takes all of them, that of slow readers first: while it waits
// for a slow reader, the other readers go on. Not recursive.
class FENLUX_CAPABILITY("mutex") StripedMutex {
 public:
  StripedMutex() = default;
  StripedMutex(const StripedMutex&) = delete;
  StripedMutex& operator=(const StripedMutex&) = delete;

 private:
  friend class ReaderLock;
  friend class SlowReaderLock;
  friend class WriterLock;
  struct alignas(kCacheLine) Stripe {
    std::mutex mutex;
  };
  using Stripes = std::array<Stripe, 1 + kThreadGroups>;  // that of slow readers is the first

  std::mutex& OfThisThread() {
    YieldAtRandom();
    return stripes[1 + GroupOfThisThread()].mutex;
  }
  std::mutex& OfSlowReaders() {
    YieldAtRandom();
    return stripes[0].mutex;
  }

  Stripes stripes;
};

// Holds a mutex for a short read from construction to the end of the scope.
class FENLUX_SCOPED_CAPABILITY ReaderLock {
 public:
  explicit ReaderLock(StripedMutex& mutex) FENLUX_ACQUIRE_SHARED(mutex) : lock(mutex.OfThisThread()) {}
  ~ReaderLock() FENLUX_RELEASE() = default;
  ReaderLock(const ReaderLock&) = delete;
  ReaderLock& operator=(const ReaderLock&) = delete;

 private:
  const std::lock_guard<std::mutex> lock;
};

// Holds a mutex for a read of any length from construction to the end of the scope. Slow readers take turns.
class FENLUX_SCOPED_CAPABILITY SlowReaderLock {
 public:
  explicit SlowReaderLock(StripedMutex& mutex) FENLUX_ACQUIRE_SHARED(mutex) : lock(mutex.OfSlowReaders()) {}
  ~SlowReaderLock() FENLUX_RELEASE() = default;
  SlowReaderLock(const SlowReaderLock&) = delete;
  SlowReaderLock& operator=(const SlowReaderLock&) = delete;

 private:
  const std::lock_guard<std::mutex> lock;
};

// Holds a mutex for writing from construction to the end of the scope.
class FENLUX_SCOPED_CAPABILITY WriterLock {
 public:
  explicit WriterLock(StripedMutex& mutex) FENLUX_ACQUIRE(mutex) {
    for (std::size_t index = 0; index < locks.size(); ++index) {
      YieldAtRandom();
      locks[index] = std::unique_lock<std::mutex>(mutex.stripes[index].mutex);
    }
  }
  ~WriterLock() FENLUX_RELEASE() = default;
  WriterLock(const WriterLock&) = delete;
  WriterLock& operator=(const WriterLock&) = delete;

 private:
  std::array<std::unique_lock<std::mutex>, std::tuple_size_v<StripedMutex::Stripes>> locks;
};

}  // namespace fenlux
