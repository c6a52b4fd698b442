// Registration of driver interfaces with the host: one record per interface, withdrawn when it shuts down.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

namespace fenlux {

// Describes a driver interface, for the host's own use: the module reads nothing back. Each setter is called once, in
// this order, before CRecordService::Register. Connection worker.
class CKdiRecord {
 public:
  // Stores the kind of the interface: always "KDIB".
  virtual void SetName(const std::string& name) = 0;
  // Stores CCfgEx::GetPortValue.
  virtual void SetPortValue(std::uint32_t value) = 0;
  // Stores CCfgEx::GetRecordValue1.
  virtual void SetValue1(std::uint32_t value) = 0;
  // Stores CCfgEx::GetRecordValue2.
  virtual void SetValue2(std::uint32_t value) = 0;

 protected:
  ~CKdiRecord() = default;
};

// The factory of registration records.
class CRecordFactory {
 public:
  // Creates an empty record in `out` and returns `out`; an empty handle means that nothing is registered. Connection
  // worker.
  virtual std::shared_ptr<CKdiRecord>& CreateRecord(std::shared_ptr<CKdiRecord>& out) = 0;

 protected:
  ~CRecordFactory() = default;
};

// A record that is registered.
class CRecordRegistration {
 public:
  // Withdraws the record. Called at most once, on the thread that shuts the interface down. Any thread.
  virtual void Withdraw() = 0;

 protected:
  ~CRecordRegistration() = default;
};

// The register of driver interfaces. One object for the life of the host.
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
