// Check for handles that must not be empty.
#pragma once

#include <memory>
#include <stdexcept>

namespace fenlux {

// Returns the handle; throws std::runtime_error with the given message if it is empty.
template <class T>
std::shared_ptr<T> Required(std::shared_ptr<T> handle, const char* messageIfEmpty) {
  if (!handle) throw std::runtime_error(messageIfEmpty);
  return handle;
}

}  // namespace fenlux
