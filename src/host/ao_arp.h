// The judge of events.
#pragma once

#include <cstdint>
#include <memory>

namespace fenlux {

class CArpRecord;

class CAoArp {
 public:
  // Judges a filled record and gives a decision, 1 to 7. The operation that the record tells of stands still in the
  // kernel meanwhile. Delivery threads, several at once.
  virtual std::uint32_t Evaluate(const std::shared_ptr<CArpRecord>& record) = 0;

 protected:
  ~CAoArp() = default;
};

}  // namespace fenlux
