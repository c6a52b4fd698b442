// Weak handles that threads of different groups lock without writing to the same memory.
#pragma once

#include <array>
#include <cstddef>
#include <memory>
#include <utility>

#include "common/thread_group.h"

namespace fenlux {

// Strong handles to one object, with a reference count for each group of threads. Keeps the object alive.
template <class T>
class StripedHandle {
 public:
  // Throws std::bad_alloc.
  explicit StripedHandle(const std::shared_ptr<T>& object) {
    for (auto& handle : handles) handle = std::shared_ptr<T>(std::make_shared<Keeper>(object), object.get());
  }

 private:
  template <class>
  friend class WeakStripedHandle;
  // On cache lines of its own, with its count.
  struct alignas(kCacheLine) Keeper {
    explicit Keeper(std::shared_ptr<T> kept) : object(std::move(kept)) {}
    const std::shared_ptr<T> object;
  };

  std::array<std::shared_ptr<T>, kThreadGroups> handles;
};

// Does not keep the object alive.
template <class T>
class WeakStripedHandle {
 public:
  explicit WeakStripedHandle(const StripedHandle<T>& striped) {
    for (std::size_t group = 0; group < kThreadGroups; ++group) handles[group] = striped.handles[group];
  }

  // Returns a handle that keeps the object alive, or an empty one if the StripedHandle was destroyed and no handle from
  // here is left. Any thread.
  std::shared_ptr<T> Lock() const noexcept { return handles[GroupOfThisThread()].lock(); }

 private:
  std::array<std::weak_ptr<T>, kThreadGroups> handles;
};

}  // namespace fenlux
