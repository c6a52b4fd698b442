// Marks what a test's own machinery does, so that failing allocations (failing_allocations.h) spare it.
#pragma once

namespace fenlux::testing {

// How many exemptions the calling thread is in.
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
