// The fake of host/ao_arp.h.
#pragma once

#include <cstdint>
#include <memory>
#include <utility>

#include "host/ao_arp.h"
#include "tests/support/fake_host/fake_arp_record.h"
#include "tests/support/fake_host/host_core.h"

namespace fenlux::testing {

class FakeAoArp final : public CAoArp {
 public:
  explicit FakeAoArp(std::shared_ptr<HostCore> hostCore) : core(std::move(hostCore)) {}
  std::uint32_t Evaluate(const std::shared_ptr<CArpRecord>& record) override {
    core->gate.Pass("CAoArp::Evaluate", record ? "record" : "nothing");
    const auto& judge = core->settings.judge;
    if (judge) return judge(static_cast<FakeArpRecord&>(*record));
    return core->settings.decision;
  }

 private:
  std::shared_ptr<HostCore> core;
};

}  // namespace fenlux::testing
