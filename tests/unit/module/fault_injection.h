// Fault injection: every host call of an operation fails once, in every way a call can fail, and an oracle says what
// each failure must lead to. Nothing may crash or leak, and each failure leaves the trace that the operation promises:
// a report line, or the exception itself.
//
// An operation first runs without a failure. The journal of that run shows which call is the n-th, and the oracle
// derives the expected outcome from it.
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <utility>

#include "tests/unit/module/module_test.h"

namespace fenlux::testing {

// What a failed call must lead to.
struct Outcome {
  enum class Kind { kPropagates, kReported, kSwallowed };
  Kind kind;
  std::string tag;  // of the report
};

inline const Outcome kPropagates{Outcome::Kind::kPropagates, {}};
inline const Outcome kSwallowed{Outcome::Kind::kSwallowed, {}};
inline Outcome Reported(std::string tag) { return {Outcome::Kind::kReported, std::move(tag)}; }

// The oracle of an operation: the outcome of a failure at calls[position].
using Oracle = std::function<Outcome(const Lines& calls, std::size_t position)>;

// Oracles of operations that treat all their calls alike.
Outcome AlwaysPropagates(const Lines& calls, std::size_t position);
Oracle AlwaysReported(const std::string& tag);

// The oracle of a connection run whose calls start at `begin`.
Outcome OutcomeInConnectionRun(const Lines& calls, std::size_t position, std::size_t begin = 0);

// The index of the first entry at or after `from` that begins with the prefix. Fails the test if there is none.
std::size_t Find(const Lines& calls, const std::string& prefix, std::size_t from = 0);

// Excludes the refresh thread from fault injection: it runs concurrently with the thread under test.
void ExcludeRefreshThread(CallGate& gate);
// The journal without the calls of the refresh thread.
Lines CountedCalls(const CallGate& gate);

// Calls `inject` with every kind of failure and every position in `calls`, and names both in the trace. Stops at the
// first fatal failure.
void ForEachFault(const Lines& calls, const std::function<void(Failure failure, std::size_t position)>& inject);

class FaultInjection : public ModuleTest {
 protected:
  FaultInjection() { ExcludeRefreshThread(Gate()); }
  Lines CountedCalls() const { return testing::CountedCalls(Gate()); }

  // Runs with each call failing once and compares with the oracle. `prepare` makes the subject of each run.
  template <class Prepare, class Run>
  void FailEveryCall(Prepare&& prepare, Run&& run, const Oracle& oracle) {
    Lines clean;
    {
      auto subject = prepare();
      Forget();
      run(subject);
      clean = CountedCalls();
    }
    ASSERT_FALSE(clean.empty());
    ForEachFault(clean, [&](Failure failure, std::size_t position) {
      auto subject = prepare();
      Forget();
      Gate().FailAt(position + 1, failure);
      const Outcome expected = oracle(clean, position);
      if (expected.kind == Outcome::Kind::kPropagates) {
        EXPECT_TRUE(Propagates(failure, [&] { run(subject); }));
      } else {
        EXPECT_NO_THROW(run(subject));
      }
      EXPECT_NE(Gate().FailedOperation(), "");
      ExpectTrace(expected, failure);
      Gate().StopFailing();
    });
    for (const Failure failure : kAllFailures) {
      auto subject = prepare();
      Forget();
      Gate().FailAt(clean.size() + 1, failure);
      run(subject);
      EXPECT_EQ(Gate().FailedOperation(), "") << "a run without a failure made more calls than the first one";
      Gate().StopFailing();
    }
  }

 private:
  // Expects the report that the outcome promises, and no report of a dispatch.
  void ExpectTrace(const Outcome& expected, Failure failure) const;
};

}  // namespace fenlux::testing
