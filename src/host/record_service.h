// The host's register of driver interfaces: one record per interface, withdrawn when it shuts down.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

namespace fenlux {

// What a driver interface says of itself. Connection worker; each setter is called once.
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
  // Makes an empty record; an empty handle means that none is registered. Connection worker.
  virtual std::shared_ptr<CKdiRecord>& CreateRecord(std::shared_ptr<CKdiRecord>& out) = 0;

 protected:
  ~CRecordFactory() = default;
};

class CRecordRegistration {
 public:
  // Takes the record out of the register. Called at most once, on the thread that shuts the interface down: host
  // thread or connection worker.
  virtual void Withdraw() = 0;

 protected:
  ~CRecordRegistration() = default;
};

class CRecordService {
 public:
  // Enters a filled record. The registration that it returns lives as long as the driver interface; a registration
  // released without Withdraw belongs to an interface whose construction failed. Connection worker.
  virtual std::shared_ptr<CRecordRegistration> Register(const std::shared_ptr<CKdiRecord>& record) = 0;

 protected:
  ~CRecordService() = default;
};

}  // namespace fenlux
