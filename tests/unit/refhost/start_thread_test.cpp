// If the system refuses new threads, the message says which thread is missing.
#include "refhost/base/start_thread.h"

#include <gtest/gtest.h>

#include <functional>
#include <iostream>
#include <string>

#include "refhost/app/bounded_output.h"
#include "refhost/emulator/driver_emulator.h"
#include "refhost/services/log/log_service.h"
#include "tests/support/no_threads.h"

namespace fenlux::refhost {
namespace {

std::string FailureWithoutThreads(const std::function<void()>& action) {
  const testing::NoThreads none;
  try {
    action();
    return {};
  } catch (const std::runtime_error& error) {
    return error.what();
  }
}

std::string Expected(const std::string& name) {
  return "the thread for " + name +
         " cannot be started: Resource temporarily unavailable; raise the limit on processes and threads, or free "
         "memory";
}

TEST(StartThread, NamesTheThreadThatCannotBeStarted) {
  if (!testing::NoThreads::Possible()) GTEST_SKIP() << "cannot make thread creation fail on this system";
  EXPECT_EQ(FailureWithoutThreads([] { StartThread("the test", [] {}).join(); }), Expected("the test"));
  EXPECT_EQ(FailureWithoutThreads([] { const LogService log((LogSettings())); }), Expected("the log's writer"));
  EXPECT_EQ(FailureWithoutThreads([] { const DriverEmulator emulator((EmulatorSettings())); }),
            Expected("the emulator's watchdog"));
  EXPECT_EQ(FailureWithoutThreads([] { const BoundedOutput output(std::cout, "standard output"); }),
            Expected("standard output"));
}

}  // namespace
}  // namespace fenlux::refhost
