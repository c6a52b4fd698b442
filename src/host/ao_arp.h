// The judge of events.
#pragma once

#include <cstdint>
#include <memory>

namespace fenlux {

class CArpRecord;

// What Evaluate may return, and the verdict that the driver receives for it. The driver defines what a verdict does to
// the operation: decisions 1, 3 and 4 have no name but that of their verdict.
enum class Decision : std::uint32_t {
  kVerdict2 = 1,     // verdict 2
  kPass = 2,         // verdict 3, or 7 where CCfgEx::GetClientTypeFlag is true
  kVerdict4 = 3,     // verdict 4
  kVerdict5 = 4,     // verdict 5
  kContext = 5,      // verdict 6, with the record's context data; 8 where the record has none
  kPassClient2 = 6,  // verdict 7
  kUndecided = 7,    // verdict 8, as for any value that is not in this list
};
inline constexpr auto kMinDecision = static_cast<std::uint32_t>(Decision::kVerdict2);
inline constexpr auto kMaxDecision = static_cast<std::uint32_t>(Decision::kUndecided);

class CAoArp {
 public:
  // Judges the event and returns a decision (see Decision). The operation it describes stays blocked in the kernel
  // until this returns, so do not wait for users, the network, or a disk the driver watches. A throw gives verdict 8.
  // Delivery threads, concurrently.
  virtual std::uint32_t Evaluate(const std::shared_ptr<CArpRecord>& record) = 0;

 protected:
  ~CAoArp() = default;
};

}  // namespace fenlux
