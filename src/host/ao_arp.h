// Judging of events.
#pragma once

#include <cstdint>
#include <memory>

namespace fenlux {

class CArpRecord;

// What Evaluate may return, and the verdict that the driver receives for it. The driver defines what each verdict does
// to the operation, so decisions 1, 3 and 4 are named after their verdicts.
enum class Decision : std::uint32_t {
  kVerdict2 = 1,     // verdict 2
  kPass = 2,         // verdict 3, or 7 if CCfgEx::GetClientTypeFlag is true
  kVerdict4 = 3,     // verdict 4
  kVerdict5 = 4,     // verdict 5
  kContext = 5,      // verdict 6 with the record's context data, or 8 if it has none
  kPassClient2 = 6,  // verdict 7
  kUndecided = 7,    // verdict 8, like any value not in this list
};
inline constexpr auto kMinDecision = static_cast<std::uint32_t>(Decision::kVerdict2);
inline constexpr auto kMaxDecision = static_cast<std::uint32_t>(Decision::kUndecided);

class CAoArp {
 public:
  // Judges the event and returns a decision (see Decision). The operation it describes stays blocked in the kernel
  // until this returns, so do not wait for users, the network, or a disk the driver watches. If it throws, the
  // driver receives verdict 8. Delivery threads, concurrently.
  virtual std::uint32_t Evaluate(const std::shared_ptr<CArpRecord>& record) = 0;

 protected:
  ~CAoArp() = default;
};

}  // namespace fenlux
