// The emulator's counts of the notifications it delivered and of their outcomes. The sums must add up.
#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>

#include "refhost/emulator/unjudged.h"

namespace fenlux::refhost {

// Times from passing a notification to the module until its reply was taken, for those that were answered in time or
// need no answer. Quantiles are accurate to about 3 percent. All values are 0 while nothing has been counted.
struct LatencySummary {
  std::uint64_t count = 0;
  std::chrono::nanoseconds p50{0};
  std::chrono::nanoseconds p95{0};
  std::chrono::nanoseconds p99{0};
  std::chrono::nanoseconds max{0};
};

// A consistent snapshot.
struct EmulatorTotals {
  std::uint64_t delivered = 0;
  std::uint64_t answered = 0;            // a well-formed reply, in time
  std::uint64_t unansweredByDesign = 0;  // code 4113, which expects no reply
  std::uint64_t late = 0;
  std::uint64_t lost = 0;
  std::uint64_t inFlight = 0;                        // with the module right now; 0 once the emulator has stopped
  std::map<std::uint32_t, std::uint64_t> byCode;     // of those delivered; messages too short for a code count as 0
  std::map<std::uint32_t, std::uint64_t> byVerdict;  // of those answered
  // Those answered, by code and verdict. A code without any has no entry.
  std::map<std::uint32_t, std::map<std::uint32_t, std::uint64_t>> byCodeAndVerdict;
  std::array<std::uint64_t, kUnjudgedCauses> unjudged{};
  LatencySummary latency;

  // Kernel events only; all 0 with the scripted source.
  std::uint64_t kernelEvents = 0;           // permission events read from the kernel
  std::uint64_t kernelRefused = 0;          // answered so that the operation failed, by verdict or unjudged
  std::uint64_t kernelAllowed = 0;          // answered so that it continued, by verdict or unjudged
  std::uint64_t kernelRefusedUnjudged = 0;  // of those refused: without a verdict
  std::uint64_t kernelInFlight = 0;         // read and not answered yet; 0 once the emulator has stopped

  std::uint64_t Unjudged(UnjudgedCause cause) const { return unjudged[static_cast<std::size_t>(cause)]; }
  // delivered = answered + unanswered by design + late + lost + in flight, the sums by code, verdict and cause agree
  // with them, every kernel event is answered or in flight, and unjudged refusals do not exceed the causes.
  bool AddsUp() const;
};

}  // namespace fenlux::refhost
