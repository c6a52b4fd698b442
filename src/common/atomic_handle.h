// A shared handle that one thread replaces while others read it.
#pragma once

#include <memory>

#include "common/mutex.h"

namespace fenlux {

// Readers get a copy that stays valid whatever happens to the handle. Any thread.
template <class T>
class AtomicHandle {
 public:
  std::shared_ptr<T> Load() const {
    const MutexLock lock(mutex);
    return handle;
  }

  // The previous object is released after the mutex, so nothing of the host runs while the mutex is held.
  void Store(std::shared_ptr<T> replacement) {
    const MutexLock lock(mutex);
    handle.swap(replacement);
  }

 private:
  mutable Mutex mutex;
  std::shared_ptr<T> handle FENLUX_GUARDED_BY(mutex);
};

}  // namespace fenlux
