// A value that can be replaced while others read it: a reader holds the snapshot it got, a writer puts a new one.
#pragma once

#include <memory>
#include <mutex>
#include <utility>

namespace fenlux::refhost {

// Any thread, several at once. The lock is held for the copy of one handle only.
template <typename Value>
class LiveValue {
 public:
  explicit LiveValue(Value value) : current(std::make_shared<const Value>(std::move(value))) {}

  std::shared_ptr<const Value> Get() const {
    const std::lock_guard lock(mutex);
    return current;
  }

  void Set(Value value) {
    auto next = std::make_shared<const Value>(std::move(value));
    const std::lock_guard lock(mutex);
    current.swap(next);
  }

 private:
  mutable std::mutex mutex;
  std::shared_ptr<const Value> current;
};

}  // namespace fenlux::refhost
