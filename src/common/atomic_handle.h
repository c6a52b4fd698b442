// A shared handle that one thread replaces while others read it.
#pragma once

#include <atomic>
#include <memory>
#include <utility>

namespace fenlux {

// Readers get a copy that stays valid whatever happens to the handle. Any thread.
template <class T>
class AtomicHandle {
 public:
  std::shared_ptr<T> Load() const { return std::atomic_load(&handle); }
  void Store(std::shared_ptr<T> replacement) { std::atomic_store(&handle, std::move(replacement)); }

 private:
  // The free functions, and not std::atomic<std::shared_ptr>: the latter's reads and writes are invisible to the thread
  // sanitizer in the compilers that we build with.
  std::shared_ptr<T> handle;
};

}  // namespace fenlux
