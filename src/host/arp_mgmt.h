// The maker of event records.
#pragma once

#include <cstdint>
#include <memory>

namespace fenlux {

class CArpRecord;

class CArpMgmt {
 public:
  // Makes an empty event record; the module passes 0. Delivery threads, once per notification.
  virtual std::shared_ptr<CArpRecord>& CreateRecord(std::shared_ptr<CArpRecord>& out, std::uint32_t reserved) = 0;

 protected:
  ~CArpMgmt() = default;
};

}  // namespace fenlux
