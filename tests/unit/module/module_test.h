// What the module's tests begin with: a fake host, a manual clock, and driver interfaces in the state that a test
// needs.
#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <boost/filesystem.hpp>
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

namespace fenlux::testing {

using Lines = std::vector<std::string>;
using std::chrono_literals::operator""ms;
using std::chrono_literals::operator""s;
using std::chrono_literals::operator""h;

// Keeps what detached workers still use, to the end of the process and beyond.
template <class T>
std::shared_ptr<T> Keep(std::shared_ptr<T> object) {
  static std::mutex& mutex = *new std::mutex;
  static auto& kept = *new std::vector<std::shared_ptr<void>>;
  const std::lock_guard lock(mutex);
  kept.push_back(object);
  return object;
}

// The message of the std::runtime_error that the call throws; a failed expectation where it throws none.
template <class Call>
std::string RuntimeErrorOf(Call&& call) {
  try {
    std::forward<Call>(call)();
  } catch (const std::runtime_error& error) {
    return error.what();
  } catch (...) {
    ADD_FAILURE() << "threw something else than a std::runtime_error";
    return {};
  }
  ADD_FAILURE() << "threw nothing";
  return {};
}

// A call on a thread of its own that a lock is expected to hold up. No order of the threads lets it through where the
// lock is held; where it is not, the call is given so many turns that it shows.
class HeldUpCall {
 public:
  explicit HeldUpCall(std::function<void()> call)
      : thread([this, call = std::move(call)] {
          begun = true;
          call();
          ended = true;
        }) {}
  ~HeldUpCall() { thread.join(); }
  HeldUpCall(const HeldUpCall&) = delete;
  HeldUpCall& operator=(const HeldUpCall&) = delete;

  // To be asked while the lock ought to be held.
  bool GetsThrough() const {
    while (!begun) std::this_thread::yield();
    for (int turn = 0; turn < 5000 && !ended; ++turn) std::this_thread::yield();
    return ended;
  }

 private:
  std::atomic<bool> begun{false};
  std::atomic<bool> ended{false};
  std::thread thread;  // last: it uses the others
};

// Whether the call throws just what the fake host throws for this failure.
template <class Call>
::testing::AssertionResult Propagates(Failure failure, Call&& call);

class ModuleTest : public ::testing::Test {
 protected:
  ModuleTest() { Clock().Reset(); }
  // Lets the refresh threads of ended driver interfaces end too.
  ~ModuleTest() override { Clock().Advance(24h); }

  static ManualClock& Clock() { return ManualClock::Instance(); }
  CallGate& Gate() const { return host.Gate(); }
  HostSettings& Settings() const { return host.Settings(); }

  // A driver interface as it is after construction, and a journal that is empty again.
  std::shared_ptr<CWinDriverInteract> NewInteract() const {
    auto interact = std::make_shared<CWinDriverInteract>(host.Context());
    Forget();
    return interact;
  }

  // A driver interface whose connection is open and ready, and a journal that is empty again. Its Wait has returned
  // already, which changes nothing about it.
  std::shared_ptr<CWinDriverInteract> ReadyInteract() const {
    auto interact = std::make_shared<CWinDriverInteract>(host.Context());
    const bool blocks = Settings().waitBlocks.exchange(false);
    interact->RunDriverConnection();
    Settings().waitBlocks = blocks;
    Settle();
    return interact;
  }

  // Waits until the refresh thread that was just started has come to its pause, and forgets what happened so far.
  void Settle() const {
    EXPECT_TRUE(Clock().AwaitPauses(std::chrono::milliseconds(Settings().refreshInterval), ++settled));
    Forget();
  }

  // For a test that begins anew in a loop.
  void ResetClock() const {
    Clock().Reset();
    settled = 0;
  }

  void Forget() const {
    Gate().ClearJournal();
    host.ClearRequests();
  }

  // The journal without the calls that only look into buffers.
  Lines Calls() const { return Gate().EntriesWithout({"CBuf::"}); }
  // The log lines.
  Lines Logged() const { return Gate().EntriesOf({"CLog::", "CUtility::WriteLog"}); }

  FakeHost host;

 private:
  mutable std::size_t settled = 0;
};

// Every line that the module writes at "problem" level carries this code.
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
