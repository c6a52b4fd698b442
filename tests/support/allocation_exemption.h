// Exempts a test's own bookkeeping from failing allocations (failing_allocations.h).
#pragma once

namespace fenlux::testing {

// The number of exemptions that the calling thread is inside.
inline thread_local int allocationExemptions = 0;

// While an instance exists, no allocation of its thread fails or counts. May nest.
class AllocationExemption {
 public:
  AllocationExemption() { ++allocationExemptions; }
  ~AllocationExemption() { --allocationExemptions; }
  AllocationExemption(const AllocationExemption&) = delete;
  AllocationExemption& operator=(const AllocationExemption&) = delete;
};

}  // namespace fenlux::testing
