// Byte buffers, made by the host: every request, reply and connect context is in one.
#pragma once

#include <cstddef>
#include <cstdint>

namespace fenlux {

// Owned by its shared handles. The module writes to a buffer on one thread only, before it passes the buffer on.
class CBuf {
 public:
  // Returns the first byte, valid for the life of the buffer. May be null only if the size is 0. Any thread.
  virtual std::uint8_t* GetData() = 0;
  // Returns the size in bytes, which never changes. Any thread.
  virtual std::size_t GetSize() = 0;

 protected:
  ~CBuf() = default;
};

}  // namespace fenlux
