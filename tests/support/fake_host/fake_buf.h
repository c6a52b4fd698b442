// The fake of host/buf.h.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "host/buf.h"
#include "tests/support/fake_host/host_core.h"

namespace fenlux::testing {

class FakeBuf final : public CBuf {
 public:
  FakeBuf(std::shared_ptr<HostCore> hostCore, std::size_t size);
  FakeBuf(std::shared_ptr<HostCore> hostCore, const Bytes& bytes);
  std::uint8_t* GetData() override;
  std::size_t GetSize() override;

  // The same, without a host call.
  std::uint8_t* data() { return storage.get(); }
  const std::uint8_t* data() const { return storage.get(); }
  std::size_t size() const { return length; }
  Bytes Copy() const { return {data(), data() + size()}; }

 private:
  std::shared_ptr<HostCore> core;
  std::size_t length;
  std::unique_ptr<std::uint8_t[]> storage;
};

// The bytes of a buffer that the fake host made; makes no host call.
Bytes BytesOf(const std::shared_ptr<CBuf>& buffer);

}  // namespace fenlux::testing
