// The buffer in which the emulated driver hands back an answer of its own.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "host/buf.h"

namespace fenlux::refhost {

class EmulatorBuf final : public CBuf {
 public:
  explicit EmulatorBuf(std::size_t size) : bytes(size) {}

  std::uint8_t* GetData() override { return bytes.data(); }
  std::size_t GetSize() override { return bytes.size(); }

 private:
  std::vector<std::uint8_t> bytes;
};

}  // namespace fenlux::refhost
