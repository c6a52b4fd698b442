// The fake of host/cfg.h.
#pragma once

#include <cstdint>
#include <memory>
#include <utility>

#include "host/cfg.h"
#include "tests/support/fake_host/fake_record_service.h"
#include "tests/support/fake_host/host_core.h"

namespace fenlux::testing {

class FakeSpspSettings final : public CSpspSettings {
 public:
  explicit FakeSpspSettings(std::shared_ptr<HostCore> hostCore) : core(std::move(hostCore)) {}
  std::uint8_t GetSpspFlag1() override {
    core->gate.Pass("CSpspSettings::GetSpspFlag1");
    return core->settings.spsp1;
  }
  std::uint8_t GetReservedFlag() override {
    core->gate.Pass("CSpspSettings::GetReservedFlag");
    return 0xEE;
  }
  std::uint8_t GetSpspFlag2() override {
    core->gate.Pass("CSpspSettings::GetSpspFlag2");
    return core->settings.spsp2;
  }
  std::uint8_t GetSpspFlag3() override {
    core->gate.Pass("CSpspSettings::GetSpspFlag3");
    return core->settings.spsp3;
  }
  std::uint8_t GetSpspFlag4() override {
    core->gate.Pass("CSpspSettings::GetSpspFlag4");
    return core->settings.spsp4;
  }

 private:
  std::shared_ptr<HostCore> core;
};

class FakeCfg final : public CCfg {
 public:
  explicit FakeCfg(const std::shared_ptr<HostCore>& hostCore)
      : core(hostCore),
        factory(std::make_shared<FakeRecordFactory>(hostCore)),
        settings(std::make_shared<FakeSpspSettings>(hostCore)) {}
  const std::shared_ptr<CRecordFactory>& GetRecordFactory() override {
    return core->gate.Pass("CCfg::GetRecordFactory") ? factory : noFactory;
  }
  const std::shared_ptr<CSpspSettings>& GetSpspSettings() override {
    return core->gate.Pass("CCfg::GetSpspSettings") ? settings : noSettings;
  }
  void ReportDriverVersion(std::uint32_t kind, bool current, std::uint32_t version) override {
    core->gate.Pass("CCfg::ReportDriverVersion", kind, current, version);
  }
  bool IsMeasuringEnabled(std::uint32_t first, std::uint32_t second) override {
    core->gate.Pass("CCfg::IsMeasuringEnabled", first, second);
    return core->settings.measuring;
  }

 private:
  std::shared_ptr<HostCore> core;
  std::shared_ptr<CRecordFactory> factory;
  std::shared_ptr<CRecordFactory> noFactory;
  std::shared_ptr<CSpspSettings> settings;
  std::shared_ptr<CSpspSettings> noSettings;
};

}  // namespace fenlux::testing
