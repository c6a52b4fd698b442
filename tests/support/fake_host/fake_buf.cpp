// Buffers on the heap, sized exactly so that sanitizers see overruns.
#include "tests/support/fake_host/fake_buf.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace fenlux::testing {

FakeBuf::FakeBuf(std::shared_ptr<HostCore> hostCore, std::size_t size)
    : core(std::move(hostCore)), length(size), storage(new std::uint8_t[size]) {
  if (core->settings.fillBuffers) std::memset(storage.get(), 0xCD, size);
}

FakeBuf::FakeBuf(std::shared_ptr<HostCore> hostCore, const Bytes& bytes)
    : core(std::move(hostCore)), length(bytes.size()), storage(new std::uint8_t[bytes.size()]) {
  std::copy(bytes.begin(), bytes.end(), storage.get());
}

std::uint8_t* FakeBuf::GetData() {
  core->gate.Pass("CBuf::GetData");
  return storage.get();
}

std::size_t FakeBuf::GetSize() {
  core->gate.Pass("CBuf::GetSize");
  return length;
}

Bytes BytesOf(const std::shared_ptr<CBuf>& buffer) {
  const auto* const fake = dynamic_cast<const FakeBuf*>(buffer.get());
  return fake != nullptr ? fake->Copy() : Bytes();
}

}  // namespace fenlux::testing
