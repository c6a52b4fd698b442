// Fault injection into the connection worker and the policy worker.
#include "tests/support/temporary_directory.h"
#include "tests/unit/module/fault_injection.h"
#include "tests/unit/module/worker_test.h"

namespace fenlux::testing {
namespace {

class FaultInjectionWorkers : public WorkerTest {
 protected:
  FaultInjectionWorkers() { ExcludeRefreshThread(Gate()); }
  Lines CountedCalls() const { return testing::CountedCalls(Gate()); }
};

}  // namespace

TEST_F(FaultInjectionWorkers, TheConnectionWorkerReportsEachFailureAndTheNextAttemptIsComplete) {
  // Ten minutes between attempts, so that the alert, which has its own tests, is never due.
  std::size_t attempts = 0;
  const auto runAttempt = [&] {
    Forget();
    if (attempts == 0) {
      StartConnectionWorker();
    } else {
      Clock().Advance(600s);
    }
    ++attempts;
    ASSERT_TRUE(Clock().AwaitPauses(5s, attempts));
    ASSERT_TRUE(Clock().AwaitParked(5s));
  };
  runAttempt();
  runAttempt();
  const Lines clean = CountedCalls();
  const std::size_t closed = Find(clean, "CPortClient::Close");  // by the destructor of the previous interface
  const std::size_t ended = Find(clean, Event("Driver interact exit."));
  ForEachFault(clean, [&](Failure failure, std::size_t position) {
    // Two complete attempts: the first may still clean up after a failed one.
    runAttempt();
    runAttempt();
    ASSERT_EQ(CountedCalls(), clean);
    Gate().FailAt(position + 1, failure);
    runAttempt();
    EXPECT_NE(Gate().FailedOperation(), "");
    const Lines problems = Gate().EntriesOf({"CLog::LogProblem"});
    if (position == closed) {
      EXPECT_TRUE(problems.empty()) << "a destructor reports nothing";
    } else if (position < closed) {
      EXPECT_EQ(problems, Lines{Problem(InnerReport(failure))});
    } else if (position > ended) {
      EXPECT_EQ(problems, Lines{Problem(OuterReport(failure))});
    } else {
      const Outcome outcome = OutcomeInConnectionRun(clean, position, closed + 1);
      const bool reported = outcome.kind == Outcome::Kind::kReported;
      EXPECT_EQ(problems, Lines{Problem(reported ? Report(outcome.tag, failure) : InnerReport(failure))});
    }
  });
  runAttempt();
  runAttempt();
  EXPECT_EQ(CountedCalls(), clean);
}

TEST_F(FaultInjectionWorkers, ThePolicyWorkerReportsEachFailureAndAppliesThePolicyAgain) {
  const TemporaryDirectory directory;
  host.SetPolicy({directory.Path(), directory.Path() / "missing", directory.MakeFile("file")});
  constexpr char kLastCall[] = "CPortClient::Send(24, no reply, true)";
  Connect();
  bool waiting = false;  // for a change, as opposed to pausing after a failure

  // Triggers one pass, with its n-th call failing unless n is 0. The pass must end in the wait or in the pause.
  const auto runPass = [&](bool endsInWait, std::size_t n, Failure failure) {
    impl->GetDriverInteract()->ClearMonitorObjects(1);  // what a failed pass had queued
    Forget();
    if (n != 0) Gate().FailAt(n, failure);
    if (waiting) {
      TriggerPass();
    } else {
      Clock().Advance(1s);
    }
    if (endsInWait) {
      ASSERT_TRUE(Gate().AwaitCount(kLastCall, 1));
    } else {
      ASSERT_TRUE(Clock().AwaitParked(1s));
    }
    waiting = endsInWait;
  };

  StartPolicyWorker();
  ASSERT_TRUE(Gate().AwaitCount(kLastCall, 1));
  waiting = true;
  runPass(true, 0, {});
  const Lines clean = CountedCalls();
  const std::size_t sending = Find(clean, "CUtility::CreateBuffer");
  const std::size_t sent = Find(clean, "CLog::LogEvent", sending);
  std::size_t reported = 0;
  ForEachFault(clean, [&](Failure failure, std::size_t position) {
    const bool swallowed = position >= sending && position <= sent;
    runPass(swallowed, position + 1, failure);
    if (HasFatalFailure()) return;
    EXPECT_NE(Gate().FailedOperation(), "");
    const Lines problems = Gate().EntriesOf({"CLog::LogProblem"});
    if (!swallowed) {
      ++reported;
      ASSERT_FALSE(problems.empty());
      EXPECT_EQ(problems.back(), Problem(Report("DCI,rc", failure)));
    }
    for (const std::string& problem : problems) {
      EXPECT_TRUE(!swallowed || problem.find("[DCI,rc") == std::string::npos) << problem;
    }
  });
  EXPECT_GT(reported, 0u);
  runPass(true, 0, {});
  EXPECT_EQ(CountedCalls(), clean);
}

}  // namespace fenlux::testing
