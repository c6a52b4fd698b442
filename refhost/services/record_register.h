// The host's register of driver interfaces, and the net objects they hold.
#pragma once

#include <atomic>
#include <cstdint>
#include <list>
#include <memory>
#include <string>
#include <vector>

#include "host/net.h"
#include "host/record_service.h"

namespace fenlux::refhost {

struct RegisteredInterface {
  std::string name;
  std::uint32_t portValue = 0;
  std::uint32_t value1 = 0;
  std::uint32_t value2 = 0;

  bool operator==(const RegisteredInterface&) const = default;
};

// All operations: any thread.
class RecordRegister final : public CRecordFactory, public CRecordService {
 public:
  RecordRegister();

  std::shared_ptr<CKdiRecord>& CreateRecord(std::shared_ptr<CKdiRecord>& out) override;
  // Withdraw removes the entry, as does destroying the registration.
  std::shared_ptr<CRecordRegistration> Register(const std::shared_ptr<CKdiRecord>& record) override;

  // The current entries in the order of registration.
  std::vector<RegisteredInterface> Registered() const;
  std::uint64_t TotalRegistered() const;

 private:
  struct Entries;
  class Record;
  class Registration;

  std::shared_ptr<Entries> entries;
};

struct NetTotals {
  std::uint64_t made = 0;
  std::uint64_t released = 0;
  std::uint64_t held = 0;
};

class NetService final : public CNet {
 public:
  std::shared_ptr<CNetObject>& CreateObject(std::shared_ptr<CNetObject>& out, std::uint32_t value1,
                                            std::uint32_t value2) override;
  NetTotals Totals() const;

 private:
  struct Counts {
    std::atomic<std::uint64_t> made{0};
    std::atomic<std::uint64_t> released{0};
    std::atomic<std::uint64_t> dropped{0};
  };
  class Object;

  std::shared_ptr<Counts> counts = std::make_shared<Counts>();
};

}  // namespace fenlux::refhost
