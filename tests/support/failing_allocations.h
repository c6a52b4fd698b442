// Makes a chosen heap allocation of the program fail. A program that links this gets its own global operator new.
#pragma once

#include <cstddef>

namespace fenlux::testing {

// Whose allocations count: those of the thread that creates the instance, those of all other threads, or all.
enum class AllocatingThreads { kThis, kOthers, kAll };

// While an instance exists, the n-th allocation throws std::bad_alloc, once; none does if n is 0. Counts what the
// chosen threads allocate outside of an AllocationExemption. One instance at a time.
class FailingAllocations {
 public:
  FailingAllocations(AllocatingThreads threads, std::size_t n);
  ~FailingAllocations();
  FailingAllocations(const FailingAllocations&) = delete;
  FailingAllocations& operator=(const FailingAllocations&) = delete;

  // The number of allocations so far.
  static std::size_t Count();
  // Whether the n-th allocation was reached, and therefore failed.
  bool Failed() const { return n != 0 && Count() >= n; }

 private:
  const std::size_t n;
};

}  // namespace fenlux::testing
