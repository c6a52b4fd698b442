// How the program ends if an exception leaves a function that must not throw.
#include "refhost/app/platform/out_of_memory.h"

#include <gtest/gtest.h>

#include <csignal>
#include <exception>
#include <new>
#include <stdexcept>

#include "refhost/app/exit_codes.h"

namespace fenlux::refhost {
namespace {

// Terminates like an optimized noexcept function: without catching the exception.
struct NoExceptionLeaves {
  ~NoExceptionLeaves() { std::terminate(); }
};

void FailToAllocate() {
  const NoExceptionLeaves here;
  std::get_new_handler()();  // what operator new calls
}

void FailToAllocateInANoexceptFunction() noexcept { std::get_new_handler()(); }

void FailOtherwise() {
  const NoExceptionLeaves here;
  throw std::runtime_error("a bug");
}

void SurviveAFailedAllocation() {
  try {
    std::get_new_handler()();
  } catch (const std::bad_alloc&) {
  }
}

class OutOfMemory : public ::testing::Test {
 protected:
  OutOfMemory() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
};

TEST_F(OutOfMemory, IsReportedEvenIfTheExceptionIsNotCaughtBeforeTerminating) {
  const ::testing::ExitedWithCode reported(kExitNoMemory);
  EXPECT_EXIT((HandleOutOfMemory(), FailToAllocate()), reported, "fenlux-host: out of memory");
  EXPECT_EXIT((HandleOutOfMemory(), FailToAllocateInANoexceptFunction()), reported, "fenlux-host: out of memory");
}

TEST_F(OutOfMemory, IsNotReportedForOtherExceptions) {
  const ::testing::KilledBySignal aborted(SIGABRT);
  EXPECT_EXIT((HandleOutOfMemory(), FailOtherwise()), aborted, "terminate called");
  EXPECT_EXIT((HandleOutOfMemory(), SurviveAFailedAllocation(), std::terminate()), aborted, "terminate called");
}

}  // namespace
}  // namespace fenlux::refhost
