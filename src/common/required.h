// Checks for handles that must not be empty.
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

// For a handle whose owner keeps it: returns the object itself.
template <class T>
T& RequiredObject(const std::shared_ptr<T>& handle, const char* messageIfEmpty) {
  if (!handle) throw std::runtime_error(messageIfEmpty);
  return *handle;
}
template <class T>
T& RequiredObject(std::shared_ptr<T>&& handle, const char* messageIfEmpty) = delete;

}  // namespace fenlux
