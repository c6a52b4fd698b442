// The fake of host/record_service.h.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <utility>

#include "host/record_service.h"
#include "tests/support/fake_host/host_core.h"

namespace fenlux::testing {

class FakeKdiRecord final : public CKdiRecord {
 public:
  explicit FakeKdiRecord(std::shared_ptr<HostCore> hostCore) : core(std::move(hostCore)) {}
  void SetName(const std::string& name) override { core->gate.Pass("CKdiRecord::SetName", name); }
  void SetPortValue(std::uint32_t value) override { core->gate.Pass("CKdiRecord::SetPortValue", value); }
  void SetValue1(std::uint32_t value) override { core->gate.Pass("CKdiRecord::SetValue1", value); }
  void SetValue2(std::uint32_t value) override { core->gate.Pass("CKdiRecord::SetValue2", value); }

 private:
  std::shared_ptr<HostCore> core;
};

class FakeRecordFactory final : public CRecordFactory {
 public:
  explicit FakeRecordFactory(std::shared_ptr<HostCore> hostCore) : core(std::move(hostCore)) {}
  std::shared_ptr<CKdiRecord>& CreateRecord(std::shared_ptr<CKdiRecord>& out) override {
    out.reset();
    if (core->gate.Pass("CRecordFactory::CreateRecord")) out = std::make_shared<FakeKdiRecord>(core);
    return out;
  }

 private:
  std::shared_ptr<HostCore> core;
};

class FakeRecordRegistration final : public CRecordRegistration {
 public:
  explicit FakeRecordRegistration(std::shared_ptr<HostCore> hostCore) : core(std::move(hostCore)) {}
  void Withdraw() override { core->gate.Pass("CRecordRegistration::Withdraw"); }

 private:
  std::shared_ptr<HostCore> core;
};

class FakeRecordService final : public CRecordService {
 public:
  explicit FakeRecordService(std::shared_ptr<HostCore> hostCore) : core(std::move(hostCore)) {}
  std::shared_ptr<CRecordRegistration> Register(const std::shared_ptr<CKdiRecord>& record) override {
    if (!core->gate.Pass("CRecordService::Register", record ? "record" : "nothing")) return {};
    return std::make_shared<FakeRecordRegistration>(core);
  }

 private:
  std::shared_ptr<HostCore> core;
};

}  // namespace fenlux::testing
