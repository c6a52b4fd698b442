// A byte buffer made by the host: every request, reply and connect context lives in one.
#pragma once

#include <cstddef>
#include <cstdint>

namespace fenlux {

// Owned by whoever holds a shared handle. The bytes belong to one writer at a time; the module never shares a buffer
// between threads while it writes.
class CBuf {
 public:
  // The first byte, valid for the buffer's life. Any thread.
  virtual std::uint8_t* GetData() = 0;
  // The size in bytes; fixed once made. Any thread.
  virtual std::size_t GetSize() = 0;

 protected:
  ~CBuf() = default;
};

}  // namespace fenlux
