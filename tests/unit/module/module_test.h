// The fixture of the module's tests: a fake host, a manual clock, and driver interfaces in the state a test needs.
#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <boost/filesystem.hpp>
#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "core/fenlux_impl.h"
#include "kdi/win_driver_interact.h"
#include "tests/support/fake_host/fake_host.h"
#include "tests/support/manual_clock.h"
#include "tests/support/record_builders.h"
#include "tests/support/temporary_directory.h"
#include "tests/support/test_timeout.h"

namespace fenlux::testing {

using Lines = std::vector<std::string>;
using std::chrono_literals::operator""ms;
using std::chrono_literals::operator""s;
using std::chrono_literals::operator""h;

// Keeps an object that detached workers still use alive until the process has ended.
template <class T>
std::shared_ptr<T> Keep(std::shared_ptr<T> object) {
  static std::mutex& mutex = *new std::mutex;
  static auto& kept = *new std::vector<std::shared_ptr<void>>;
  const std::lock_guard lock(mutex);
  kept.push_back(object);
  return object;
}

// Returns the message of the std::runtime_error that the call throws. Fails the test if it throws anything else.
template <class Call>
std::string RuntimeErrorOf(Call&& call) {
  try {
    std::forward<Call>(call)();
  } catch (const std::runtime_error& error) {
    return error.what();
  } catch (...) {
    ADD_FAILURE() << "threw something other than a std::runtime_error";
    return {};
  }
  ADD_FAILURE() << "threw nothing";
  return {};
}

// Makes a call on its own thread while a lock is expected to block it. While the lock is held, no schedule lets the
// call return; if it is not held, the call gets enough time slices to show that.
class BlockedCall {
 public:
  explicit BlockedCall(std::function<void()> call)
      : thread([this, call = std::move(call)] {
          begun = true;
          call();
          ended = true;
        }) {}
  ~BlockedCall() { thread.join(); }
  BlockedCall(const BlockedCall&) = delete;
  BlockedCall& operator=(const BlockedCall&) = delete;

  // Ask while the lock should be held. True: the call returned although it should be blocked.
  bool ReturnsEarly() const {
    while (!begun) std::this_thread::yield();
    for (int turn = 0; turn < 5000 && !ended; ++turn) std::this_thread::yield();
    return ended;
  }

 private:
  std::atomic<bool> begun{false};
  std::atomic<bool> ended{false};
  std::thread thread;  // last: it uses the others
};

// Repeats `step`, yielding in between, until `done` returns true. False: timed out.
template <class Done, class Step>
bool RepeatUntil(Done&& done, Step&& step) {
  const auto deadline = std::chrono::steady_clock::now() + kTestTimeout;
  while (!done()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    step();
    std::this_thread::yield();
  }
  return true;
}

// Whether the call throws exactly what the fake host throws for this failure.
template <class Call>
::testing::AssertionResult Propagates(Failure failure, Call&& call);

class ModuleTest : public ::testing::Test {
 protected:
  ModuleTest() { Clock().Reset(); }
  // Ends the refresh threads of destroyed driver interfaces.
  ~ModuleTest() override { Clock().Advance(24h); }

  static ManualClock& Clock() { return ManualClock::Instance(); }
  CallGate& Gate() const { return host.Gate(); }
  HostSettings& Settings() const { return host.Settings(); }

  // Returns a newly constructed driver interface and clears the journal.
  std::shared_ptr<CWinDriverInteract> NewInteract() const {
    auto interact = std::make_shared<CWinDriverInteract>(host.Context());
    Forget();
    return interact;
  }

  // Returns a driver interface whose connection is open and ready, and clears the journal. Its Wait has already
  // returned, which does not affect its state.
  std::shared_ptr<CWinDriverInteract> ReadyInteract() const {
    auto interact = std::make_shared<CWinDriverInteract>(host.Context());
    const bool blocks = Settings().waitBlocks.exchange(false);
    interact->RunDriverConnection();
    Settings().waitBlocks = blocks;
    Settle();
    return interact;
  }

  // Waits until the refresh thread that was just started pauses, and clears the journal.
  void Settle() const {
    EXPECT_TRUE(Clock().AwaitPauses(std::chrono::milliseconds(Settings().refreshInterval), ++settled));
    Forget();
  }

  // For tests that start over in a loop.
  void ResetClock() const {
    Clock().Reset();
    settled = 0;
  }

  void Forget() const {
    Gate().ClearJournal();
    host.ClearRequests();
  }

  // The journal without accesses to buffers.
  Lines Calls() const { return Gate().EntriesWithout({"CBuf::"}); }
  // The log lines.
  Lines Logged() const { return Gate().EntriesOf({"CLog::", "CUtility::WriteLog"}); }

  FakeHost host;

 private:
  mutable std::size_t settled = 0;
};

// The journal entries of log lines; the module logs all of them with this code.
inline std::string Problem(const std::string& line) { return "CLog::LogProblem(0x10003, " + line + ")"; }
inline std::string Event(const std::string& line) { return "CLog::LogEvent(0x10003, " + line + ")"; }

// The journal entry of a fixed text's translation.
inline std::string Translation(const std::string& text) {
  return "CLocale::TranslateText(" + text + ", " + text + ", 0)";
}

template <class Call>
::testing::AssertionResult Propagates(Failure failure, Call&& call) {
  std::string thrown = "nothing";
  try {
    std::forward<Call>(call)();
  } catch (const std::exception& error) {
    const char* const message = error.what();
    thrown = message != nullptr ? message : "";
    const bool expectsNull = failure == Failure::kNullWhat;
    if (failure != Failure::kInt && (message == nullptr) == expectsNull && thrown == MessageOf(failure)) {
      return ::testing::AssertionSuccess();
    }
  } catch (int value) {
    thrown = "int " + std::to_string(value);
    if (failure == Failure::kInt && value == 7) return ::testing::AssertionSuccess();
  } catch (...) {
    thrown = "something unknown";
  }
  return ::testing::AssertionFailure() << "threw " << thrown << " instead of " << NameOf(failure);
}

}  // namespace fenlux::testing
