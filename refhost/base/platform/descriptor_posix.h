// A file descriptor that is closed when it goes out of scope.
#pragma once

#include <unistd.h>

#include <utility>

namespace fenlux::refhost {

class Descriptor {
 public:
  Descriptor() = default;
  // Takes the result of a system call; a negative number means "none".
  explicit Descriptor(int descriptor) : number(descriptor) {}
  ~Descriptor() { Reset(); }
  Descriptor(Descriptor&& other) noexcept : number(std::exchange(other.number, -1)) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    if (this != &other) {
      Reset();
      number = std::exchange(other.number, -1);
    }
    return *this;
  }

  int Get() const { return number; }
  bool Valid() const { return number >= 0; }
  // Passes ownership of the descriptor to the caller.
  int Release() { return std::exchange(number, -1); }
  void Reset() {
    if (number >= 0) ::close(std::exchange(number, -1));
  }

 private:
  int number = -1;
};

}  // namespace fenlux::refhost
