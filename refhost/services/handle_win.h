// A Windows handle that is closed when it goes out of scope.
#pragma once

#include <windows.h>

#include <utility>

namespace fenlux::refhost {

class Handle {
 public:
  Handle() = default;
  // Takes what a system call gave; its two ways to say "none" are both understood.
  explicit Handle(HANDLE value) : value_(value == INVALID_HANDLE_VALUE ? nullptr : value) {}
  ~Handle() { Reset(); }
  Handle(Handle&& other) noexcept : value_(std::exchange(other.value_, nullptr)) {}
  Handle& operator=(Handle&& other) noexcept {
    if (this != &other) {
      Reset();
      value_ = std::exchange(other.value_, nullptr);
    }
    return *this;
  }

  HANDLE Get() const { return value_; }
  bool Valid() const { return value_ != nullptr; }
  void Reset() {
    if (value_ != nullptr) ::CloseHandle(std::exchange(value_, nullptr));
  }

 private:
  HANDLE value_ = nullptr;
};

}  // namespace fenlux::refhost
