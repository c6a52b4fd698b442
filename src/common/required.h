// A handle that must not be empty.
#pragma once

#include <memory>
#include <stdexcept>

namespace fenlux {

// The handle itself; throws std::runtime_error with the given message where it is empty.
template <class T>
std::shared_ptr<T> Required(std::shared_ptr<T> handle, const char* messageIfEmpty) {
  if (!handle) throw std::runtime_error(messageIfEmpty);
  return handle;
}

}  // namespace fenlux
