// Registration of driver interfaces with the host: one record per interface, withdrawn when it shuts down.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

namespace fenlux {

// Describes a driver interface: the name "KDIB", and GetPortValue, GetRecordValue1 and GetRecordValue2 of CCfgEx. Each
// setter is called once. Connection worker.
class CKdiRecord {
 public:
  virtual void SetName(const std::string& name) = 0;
  virtual void SetPortValue(std::uint32_t value) = 0;
  virtual void SetValue1(std::uint32_t value) = 0;
  virtual void SetValue2(std::uint32_t value) = 0;

 protected:
  ~CKdiRecord() = default;
};

class CRecordFactory {
 public:
  // Creates an empty record in `out` and returns it; an empty handle means that nothing is registered. Connection
  // worker.
  virtual std::shared_ptr<CKdiRecord>& CreateRecord(std::shared_ptr<CKdiRecord>& out) = 0;

 protected:
  ~CRecordFactory() = default;
};

class CRecordRegistration {
 public:
  // Withdraws the record. Called at most once, on the thread that shuts the interface down. Any thread.
  virtual void Withdraw() = 0;

 protected:
  ~CRecordRegistration() = default;
};

class CRecordService {
 public:
  // Registers a filled record and returns its registration, which the driver interface keeps for its life, or an empty
  // handle. If a registration is released without Withdraw, the construction of its interface failed. Connection
  // worker.
  virtual std::shared_ptr<CRecordRegistration> Register(const std::shared_ptr<CKdiRecord>& record) = 0;

 protected:
  ~CRecordService() = default;
};

}  // namespace fenlux
