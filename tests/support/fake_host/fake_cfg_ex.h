// The fake of host/cfg_ex.h.
#pragma once

#include <boost/filesystem/path.hpp>
#include <cstdint>
#include <memory>
#include <mutex>
#include <utility>

#include "host/cfg_ex.h"
#include "tests/support/fake_host/host_core.h"

namespace fenlux::testing {

// One monitored object of a policy.
class FakePolicyObject final : public CPolicyObject {
 public:
  FakePolicyObject(std::shared_ptr<HostCore> hostCore, boost::filesystem::path monitorPath)
      : core(std::move(hostCore)), path(std::move(monitorPath)) {}
  boost::filesystem::path GetMonitorPath() override {
    core->gate.Pass("CPolicyObject::GetMonitorPath");
    return path;
  }

 private:
  std::shared_ptr<HostCore> core;
  boost::filesystem::path path;
};

class FakeCfgEx final : public CCfgEx {
 public:
  explicit FakeCfgEx(std::shared_ptr<HostCore> hostCore) : core(std::move(hostCore)) {}
  std::uint32_t GetRecordValue1() override {
    core->gate.Pass("CCfgEx::GetRecordValue1");
    return core->settings.recordValue1;
  }
  std::uint32_t GetRecordValue2() override {
    core->gate.Pass("CCfgEx::GetRecordValue2");
    return core->settings.recordValue2;
  }
  std::uint32_t GetPortValue() override {
    core->gate.Pass("CCfgEx::GetPortValue");
    return core->settings.portValue;
  }
  bool IsEnabled() override {
    core->gate.Pass("CCfgEx::IsEnabled");
    return core->settings.enabled;
  }
  bool GetDriverInterfaceFlag() override {
    core->gate.Pass("CCfgEx::GetDriverInterfaceFlag");
    return core->settings.driverInterfaceFlag;
  }
  std::shared_ptr<MonitorPolicy>& GetMonitorPolicy(std::shared_ptr<MonitorPolicy>& out) override {
    out.reset();
    if (core->gate.Pass("CCfgEx::GetMonitorPolicy")) {
      out = std::make_shared<MonitorPolicy>();
      const std::lock_guard lock(core->mutex);
      core->givenPolicy = out;
      for (const auto& path : core->policy) {
        out->push_back(path ? std::make_shared<FakePolicyObject>(core, *path) : nullptr);
      }
    }
    return out;
  }
  bool IsCacheBypassed() override {
    core->gate.Pass("CCfgEx::IsCacheBypassed");
    return core->settings.cacheBypassed;
  }
  bool IsIdentityTextAdded() override {
    core->gate.Pass("CCfgEx::IsIdentityTextAdded");
    return core->settings.identityTextAdded;
  }
  std::uint32_t GetRefreshInterval() override {
    core->gate.Pass("CCfgEx::GetRefreshInterval");
    return core->settings.refreshInterval;
  }
  const std::shared_ptr<CBuf>& GetDriverConfigBlock() override {
    return core->gate.Pass("CCfgEx::GetDriverConfigBlock") ? block : noBlock;
  }
  bool GetClientTypeFlag() override {
    core->gate.Pass("CCfgEx::GetClientTypeFlag");
    return core->settings.clientTypeFlag;
  }
  bool GetMonitorObjectFlag() override {
    core->gate.Pass("CCfgEx::GetMonitorObjectFlag");
    return core->settings.monitorObjectFlag;
  }

  std::shared_ptr<CBuf> block;

 private:
  std::shared_ptr<HostCore> core;
  std::shared_ptr<CBuf> noBlock;
};

}  // namespace fenlux::testing
