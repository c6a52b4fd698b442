// Allocation failures on the module's worker threads, and in the operations that start and stop them.
#include "tests/unit/module/allocation_failures.h"
#include "tests/unit/module/worker_test.h"

namespace fenlux::testing {
namespace {

class AllocationFailuresWorkers : public WorkerTest {
 protected:
  void ExpectJudges() {
    const auto reply = host.PortClient()->Deliver(NotificationBuilder(4098).Item1(u"/p").Build());
    ASSERT_TRUE(reply);
    EXPECT_EQ(BytesOf(reply).at(12), 2u);
  }
};

}  // namespace

TEST_F(AllocationFailuresWorkers, TheConnectionWorkerConnectsAgain) {
  Settings().refreshInterval = 1000;  // so that the refresh threads end soon
  std::size_t attempts = 0;
  const auto runAttempt = [&] {
    Forget();
    if (attempts++ == 0) {
      StartConnectionWorker();
    } else {
      Clock().Advance(600s);  // between attempts, so that the alert is never due
    }
    ASSERT_TRUE(Clock().AwaitPauses(5s, attempts));
    ASSERT_TRUE(Clock().AwaitParked(5s));
  };
  runAttempt();
  FailEveryAllocation("attempt of the connection worker", [&](std::size_t n) {
    bool failed = false;
    {
      const FailingAllocations failing(AllocatingThreads::kOthers, n);
      runAttempt();
      failed = failing.Failed();
    }
    runAttempt();
    EXPECT_EQ(Gate().Count(Event("Driver interact exit.")), 1u) << "the next attempt is complete";
    EXPECT_EQ(Gate().Count("CLog::LogProblem"), 0u);
    return failed;
  });
}

TEST_F(AllocationFailuresWorkers, ThePolicyWorkerAppliesThePolicyAgain) {
  const TemporaryDirectory directory;
  host.SetPolicy({directory.Path(), directory.Path() / "missing", directory.MakeFile("file")});
  constexpr char kLastCall[] = "CPortClient::Send(24, no reply, true)";
  Connect();
  StartPolicyWorker();
  ASSERT_TRUE(Gate().AwaitCount(kLastCall, 1));

  // Triggers one pass and waits until the worker waits for a change or pauses after a failure.
  bool waiting = true;
  const auto runPass = [&] {
    impl->GetDriverInteract()->ClearMonitorObjects(1);  // what a failed pass had queued
    Forget();
    if (waiting) {
      TriggerPass();
    } else {
      Clock().Advance(1s);
    }
    ASSERT_TRUE(RepeatUntil([&] { return Gate().Count(kLastCall) == 1 || Clock().Parked(1s) == 1; }, [] {}));
    waiting = Gate().Count(kLastCall) == 1;
  };
  runPass();
  const Lines clean = Gate().EntriesOf({"CPortClient::Send"});
  FailEveryAllocation("pass of the policy worker", [&](std::size_t n) {
    bool failed = false;
    {
      const FailingAllocations failing(AllocatingThreads::kOthers, n);
      runPass();
      failed = failing.Failed();
    }
    runPass();
    EXPECT_TRUE(waiting);
    EXPECT_EQ(Gate().EntriesOf({"CPortClient::Send"}), clean) << "the next pass is complete";
    ExpectJudges();
    return failed;
  });
}

TEST_F(AllocationFailuresWorkers, StopWorkEndsTheConnectionOrCanBeRepeated) {
  Settings().refreshInterval = 1000;
  Connect();
  std::size_t connections = 1;
  FailEveryAllocation("StopWork", [&](std::size_t n) {
    const Attempt attempt = WithFailure(n, [&] { impl->StopWork(true); });
    EXPECT_EQ(attempt.other, "");
    EXPECT_NO_THROW(impl->StopWork(false));
    EXPECT_TRUE(Clock().AwaitParked(5s));
    EXPECT_FALSE(impl->GetDriverInteract());
    Forget();
    Clock().Advance(5s);
    EXPECT_TRUE(Gate().AwaitCount("CPortClient::Wait", 1));
    EXPECT_EQ(host.PortClientCount(), ++connections);
    ExpectJudges();
    return attempt.failed;
  });
  impl->StopWork(false);
  EXPECT_TRUE(Clock().AwaitParked(5s));
}

TEST_F(AllocationFailuresWorkers, StartWorkCompletesOrThrowsAndCanBeRepeated) {
  for (const std::chrono::milliseconds pause : {100ms, 1000ms, 5000ms}) Clock().PassAtOnce(pause);
  FailEveryAllocation("StartWork", [&](std::size_t n) {
    // A module and a host for each: their workers never end.
    const auto own = Keep(std::make_shared<FakeHost>());
    own->Settings().waitBlocks = true;
    const auto module = Keep(std::make_shared<CFenluxImpl>(own->Context()));
    const Attempt attempt = WithFailure(n, [&] { module->StartWork(); });
    EXPECT_EQ(attempt.other, "");
    if (attempt.threw) {
      EXPECT_NO_THROW(module->StartWork());
    }
    // Both workers are at rest, so that they do not disturb another test.
    EXPECT_TRUE(own->Gate().AwaitCount("CPortClient::Send(24", 1));
    return attempt.failed;
  });
}

}  // namespace fenlux::testing
