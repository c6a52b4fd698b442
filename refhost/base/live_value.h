// A value that can be replaced while it is read. Readers hold a snapshot; writers replace the value as a whole.
#pragma once

#include <memory>
#include <utility>

#include "common/mutex.h"

namespace fenlux::refhost {

// Any thread. The lock is held only to copy or swap one handle.
template <typename Value>
class LiveValue {
 public:
  explicit LiveValue(Value value) : current(std::make_shared<const Value>(std::move(value))) {}

  std::shared_ptr<const Value> Get() const {
    const MutexLock lock(mutex);
    return current;
  }

  void Set(Value value) {
    auto next = std::make_shared<const Value>(std::move(value));
    const MutexLock lock(mutex);
    current.swap(next);  // the old value is destroyed outside the lock
  }

 private:
  mutable Mutex mutex;
  std::shared_ptr<const Value> current FENLUX_GUARDED_BY(mutex);
};

}  // namespace fenlux::refhost
