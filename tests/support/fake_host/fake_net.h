// The fake of host/net.h.
#pragma once

#include <cstdint>
#include <memory>
#include <utility>

#include "host/net.h"
#include "tests/support/fake_host/host_core.h"

namespace fenlux::testing {

class FakeNetObject final : public CNetObject {
 public:
  explicit FakeNetObject(std::shared_ptr<HostCore> hostCore) : core(std::move(hostCore)) {}
  std::shared_ptr<CNetObject>& Release(std::shared_ptr<CNetObject>& out, std::uint32_t reserved) override {
    out.reset();
    if (core->gate.Pass("CNetObject::Release", reserved)) out = std::make_shared<FakeNetObject>(core);
    return out;
  }

 private:
  std::shared_ptr<HostCore> core;
};

class FakeNet final : public CNet {
 public:
  explicit FakeNet(std::shared_ptr<HostCore> hostCore) : core(std::move(hostCore)) {}
  std::shared_ptr<CNetObject>& CreateObject(std::shared_ptr<CNetObject>& out, std::uint32_t value1,
                                            std::uint32_t value2) override {
    out.reset();
    if (core->gate.Pass("CNet::CreateObject", value1, value2)) out = std::make_shared<FakeNetObject>(core);
    return out;
  }

 private:
  std::shared_ptr<HostCore> core;
};

}  // namespace fenlux::testing
