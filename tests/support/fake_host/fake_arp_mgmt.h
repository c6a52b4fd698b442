// The fake of host/arp_mgmt.h.
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <utility>

#include "host/arp_mgmt.h"
#include "tests/support/fake_host/fake_arp_record.h"
#include "tests/support/fake_host/host_core.h"

namespace fenlux::testing {

class FakeArpMgmt final : public CArpMgmt {
 public:
  FakeArpMgmt(std::shared_ptr<HostCore> hostCore, std::shared_ptr<HostProducts> hostProducts)
      : core(std::move(hostCore)), products(std::move(hostProducts)) {}
  std::shared_ptr<CArpRecord>& CreateRecord(std::shared_ptr<CArpRecord>& out, std::uint32_t reserved) override {
    out.reset();
    if (core->gate.Pass("CArpMgmt::CreateRecord", reserved)) {
      auto record = std::make_shared<FakeArpRecord>(core);
      if (core->settings.recordsKept) {
        const std::lock_guard lock(products->mutex);
        products->records.push_back(record);
      }
      out = std::move(record);
    }
    return out;
  }

 private:
  std::shared_ptr<HostCore> core;
  std::shared_ptr<HostProducts> products;
};

}  // namespace fenlux::testing
