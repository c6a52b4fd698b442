// Judging of events.
#pragma once

#include <cstdint>
#include <memory>

namespace fenlux {

class CArpRecord;

// What Evaluate may return, and the verdict that the driver receives for it. The module fixes only the translation.
// What a verdict does to the operation is an agreement between the agent and the driver, so decisions 1, 3 and 4 are
// named after their verdicts. As an example, this repository's driver emulator refuses operations with verdicts 4 and 5
// and lets them through with all others, unless it is configured otherwise.
enum class Decision : std::uint32_t {
  kVerdict2 = 1,     // Verdict 2. The module gives it for no other reason.
  kPass = 2,         // Verdict 3, or 7 if CCfgEx::GetClientTypeFlag is true: the same as for an unjudged oplock break.
  kVerdict4 = 3,     // Verdict 4. The module gives it for no other reason.
  kVerdict5 = 4,     // Verdict 5. The module gives it for no other reason.
  kContext = 5,      // Verdict 6 with the data of CArpRecord::GetContextData, or verdict 8 if there is none.
  kPassClient2 = 6,  // Verdict 7, whatever the client type is.
  kUndecided = 7,    // Verdict 8, like any value not in this list and like every failure before the decision.
};
// The smallest value of Decision.
inline constexpr auto kMinDecision = static_cast<std::uint32_t>(Decision::kVerdict2);
// The largest value of Decision.
inline constexpr auto kMaxDecision = static_cast<std::uint32_t>(Decision::kUndecided);

// The judge. One object for the life of the host.
class CAoArp {
 public:
  // Judges the event and returns a decision (see Decision), as a number. `record` is the object that
  // CArpMgmt::CreateRecord made, completely filled, so a cast to the host's own class is safe; it is never null. Keep
  // the handle if the event is needed after the call.
  //
  // The operation stays blocked in the kernel until this returns, so do not wait for users, the network, or a disk the
  // driver watches. Also called for code 4113 (event type 0x4015), whose decision has no effect, because the driver
  // expects no reply. Not called for oplock breaks and malformed notifications. If it throws, the driver receives
  // verdict 8. Delivery threads, concurrently.
  virtual std::uint32_t Evaluate(const std::shared_ptr<CArpRecord>& record) = 0;

 protected:
  ~CAoArp() = default;
};

}  // namespace fenlux
