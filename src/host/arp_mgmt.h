// Creation of event records.
#pragma once

#include <cstdint>
#include <memory>

namespace fenlux {

class CArpRecord;

// The factory of event records.
class CArpMgmt {
 public:
  // Creates an empty event record in `out` and returns `out`. The module passes 0 as `reserved`. If it throws, or the
  // record is null, the driver receives verdict 8. Delivery threads, concurrently, once per notification.
  virtual std::shared_ptr<CArpRecord>& CreateRecord(std::shared_ptr<CArpRecord>& out, std::uint32_t reserved) = 0;

 protected:
  ~CArpMgmt() = default;
};

}  // namespace fenlux
