// Allocation failures: every heap allocation of an operation fails once, wherever it is made, in the module, the host
// or a library. Nothing may crash or leak; the operation completes or throws std::bad_alloc, and the next notification
// is handled as if nothing had happened.
#pragma once

#include <cstddef>
#include <exception>
#include <iostream>
#include <new>
#include <string>

#include "tests/support/failing_allocations.h"
#include "tests/unit/module/notification_test.h"

namespace fenlux::testing {

// How an operation with a failing allocation ended.
struct Attempt {
  bool failed = false;  // whether the allocation was reached
  bool threw = false;   // std::bad_alloc
  std::string other;    // what else it threw
};

// Runs the call with the n-th allocation of this thread failing.
template <class Call>
Attempt WithFailure(std::size_t n, Call&& call) {
  Attempt attempt;
  const FailingAllocations failing(AllocatingThreads::kThis, n);
  try {
    std::forward<Call>(call)();
  } catch (const std::bad_alloc&) {
    attempt.threw = true;
  } catch (const std::exception& error) {
    const AllocationExemption exempt;
    attempt.other = error.what();
  } catch (...) {
    const AllocationExemption exempt;
    attempt.other = "something unknown";
  }
  attempt.failed = failing.Failed();
  return attempt;
}

// How many allocations the call makes.
template <class Call>
std::size_t AllocationsOf(Call&& call) {
  const FailingAllocations counting(AllocatingThreads::kThis, 0);
  std::forward<Call>(call)();
  return FailingAllocations::Count();
}

// Calls `run` with n = 1, 2, ... until it returns false: its n-th allocation was not reached. Prints and returns how
// many failed.
template <class Run>
std::size_t FailEveryAllocation(const std::string& operation, Run&& run) {
  constexpr std::size_t kMax = 20000;
  std::size_t n = 1;
  for (; n < kMax; ++n) {
    SCOPED_TRACE("allocation " + std::to_string(n));
    if (!run(n) || ::testing::Test::HasFailure()) break;
  }
  EXPECT_LT(n, kMax) << "the operation never completes";
  std::cout << operation << ": " << n - 1 << " allocations failed\n";
  ::testing::Test::RecordProperty("allocations_failed", static_cast<int>(n - 1));
  return n - 1;
}

}  // namespace fenlux::testing
