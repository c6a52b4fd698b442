// A Windows handle that is closed when it goes out of scope.
#pragma once

#include <windows.h>

#include <utility>

namespace fenlux::refhost {

class Handle {
 public:
  Handle() = default;
  // Takes the result of a system call; both null and INVALID_HANDLE_VALUE mean "none".
  explicit Handle(HANDLE handle) : value(handle == INVALID_HANDLE_VALUE ? nullptr : handle) {}
  ~Handle() { Reset(); }
  Handle(Handle&& other) noexcept : value(std::exchange(other.value, nullptr)) {}
  Handle& operator=(Handle&& other) noexcept {
    if (this != &other) {
      Reset();
      value = std::exchange(other.value, nullptr);
    }
    return *this;
  }

  HANDLE Get() const { return value; }
  bool Valid() const { return value != nullptr; }
  void Reset() {
    if (value != nullptr) ::CloseHandle(std::exchange(value, nullptr));
  }

 private:
  HANDLE value = nullptr;
};

}  // namespace fenlux::refhost
