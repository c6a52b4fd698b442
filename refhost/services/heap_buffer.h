// The buffer of the host and of the driver emulator. New buffers are zero-filled, so that no stale memory reaches the
// driver.
#pragma once

#include <cstdint>
#include <vector>

#include "host/buf.h"

namespace fenlux::refhost {

class HeapBuffer final : public CBuf {
 public:
  explicit HeapBuffer(std::size_t size) : bytes(size) {}
  explicit HeapBuffer(std::vector<std::uint8_t> content) : bytes(std::move(content)) {}
  HeapBuffer(const std::uint8_t* source, std::size_t size) : bytes(source, source + size) {}

  std::uint8_t* GetData() override { return bytes.data(); }
  std::size_t GetSize() override { return bytes.size(); }

 private:
  std::vector<std::uint8_t> bytes;
};

}  // namespace fenlux::refhost
