// The connection worker: attempts five seconds apart, reports of why they ended, and the alert at the tenth attempt
// within ten minutes.
#include "tests/unit/module/worker_test.h"

namespace fenlux::testing {
namespace {

const std::string kAlert = "CLog::LogAlert(0x10003, Connection with driver failed for a long time!)";

class ConnectionWorker : public WorkerTest {
 protected:
  // Runs attempts that end at once, until `count` have ended since the start of the test.
  void RunAttempts(std::size_t count) {
    if (!std::exchange(started, true)) StartConnectionWorker();
    for (;;) {
      ASSERT_TRUE(Clock().AwaitParked(5s));
      if (Attempts() >= count) return;
      const std::size_t before = Attempts();
      Clock().Advance(5s);
      ASSERT_TRUE(Clock().AwaitPauses(5s, before + 1));
    }
  }
  std::size_t Attempts() {
    std::size_t attempts = 0;
    for (const auto& pause : Clock().Pauses()) attempts += pause.duration == 5s ? 1 : 0;
    return attempts;
  }
  // Ends the pause after an attempt and waits until the next attempt has ended. False: timed out.
  bool EndAttempt() {
    if (!Clock().AwaitParked(5s)) return false;
    const std::size_t before = Attempts();
    Clock().Advance(5s);
    return Clock().AwaitPauses(5s, before + 1) && Clock().AwaitParked(5s);
  }
  static bool PolicyWorkerPolls() { return Clock().Parked(100ms) != 0; }
  // Ends attempts until the policy worker, which nothing else wakes, polls for a driver. It misses an end that
  // occurs before it waits.
  bool EndedAttemptsWakeThePolicyWorker() {
    return RepeatUntil([] { return PolicyWorkerPolls(); }, [this] { EXPECT_TRUE(EndAttempt()); });
  }
  // Starts a policy worker and waits until it has applied the policy; it then waits or is about to.
  void ApplyPolicyOnce() {
    StartPolicyWorker();
    ASSERT_TRUE(Gate().AwaitCount("CPortClient::Send(24, no reply, true)", 1));
  }

 private:
  bool started = false;
};

class ConnectionWorkerFailure : public ConnectionWorker, public ::testing::WithParamInterface<Failure> {};

}  // namespace

TEST_F(ConnectionWorker, ASecondWorkerLogsThatAndEnds) {
  Connect();
  impl->ConnectionWorker();
  EXPECT_EQ(Gate().Entries(), (Lines{"CGlobalContext::GetLocale()",
                                     Translation("[dci,tiwk] There is another thread doing work. We should exit."),
                                     Problem("[dci,tiwk] There is another thread doing work. We should exit.")}));
  EXPECT_TRUE(impl->GetDriverInteract()) << "the first one is not disturbed";
}

TEST_F(ConnectionWorker, AnEndedAttemptIsCleanedUpAndRetriedAfterFiveSeconds) {
  RunAttempts(1);
  const Lines calls = Gate().EntriesWithout({"CBuf::", "CUtility::WriteLog", "CCfgEx::GetRefreshInterval"});
  ASSERT_GE(calls.size(), 6u);
  EXPECT_EQ((Lines(calls.end() - 6, calls.end())),
            (Lines{"CPortClient::Wait()", Translation("Driver interact exit."), Event("Driver interact exit."),
                   "CPortClient::Close()", "CRecordRegistration::Withdraw()", "CNetObject::Release(0)"}));
  EXPECT_FALSE(impl->GetDriverInteract());
  EXPECT_EQ(host.PortClientCount(), 1u);
  EXPECT_EQ(Clock().Pauses().back(), (ManualClock::PauseRecord{ManualClock::Kind::kPause, 5s}));

  Clock().Advance(4999ms);
  EXPECT_EQ(host.PortClientCount(), 1u);
  Clock().Advance(1ms);
  ASSERT_TRUE(Clock().AwaitPauses(5s, 2));
  EXPECT_EQ(host.PortClientCount(), 2u);
}

TEST_F(ConnectionWorker, ThePreviousInterfaceIsReleasedAfterTheSwapOutsideTheLock) {
  RunAttempts(1);
  Forget();
  bool reached = false;
  Gate().OnCall("CPortClient::Close", [&] {
    // The first Close is the destructor's. Requesting the interface must not block.
    if (std::exchange(reached, true)) return;
    std::thread([&] { impl->GetDriverInteract(); }).join();
  });
  RunAttempts(2);
  EXPECT_TRUE(reached);
  const Lines calls =
      Gate().EntriesOf({"CGlobalContext::GetWinWork", "CPortClient::Close", "CUtility::CreateBuffer(true, 16"});
  ASSERT_GE(calls.size(), 4u);
  EXPECT_EQ((Lines(calls.begin(), calls.begin() + 4)),
            (Lines{"CGlobalContext::GetWinWork()", "CGlobalContext::GetWinWork()", "CPortClient::Close()",
                   "CUtility::CreateBuffer(true, 16, false)"}));
  EXPECT_EQ(Gate().Count("CRecordRegistration::Withdraw"), 1u) << "only of the second interface";
}

TEST_F(ConnectionWorker, AFailedConstructionKeepsThePreviousInterfaceAndCountsAsAnAttempt) {
  Connect();
  const std::weak_ptr<CWinDriverInteract> first = impl->GetReadyDriverInteract();
  Settings().waitBlocks = false;
  impl->StopWork(false);
  ASSERT_TRUE(Clock().AwaitParked(5s));
  Gate().GiveEmptyAt("CGlobalContext::GetNet", 1);
  Clock().Advance(5s);
  ASSERT_TRUE(Clock().AwaitPauses(5s, 2));
  ASSERT_TRUE(Clock().AwaitParked(5s));
  EXPECT_EQ(Gate().Count(Problem("[dci,tiwk,STDE] info=bad net init!")), 1u);
  EXPECT_FALSE(first.expired());
  Clock().Advance(5s);
  ASSERT_TRUE(Clock().AwaitPauses(5s, 3));
  EXPECT_TRUE(first.expired());
}

TEST_F(ConnectionWorker, StopWorkEndsTheAttemptAndANewOneFollows) {
  Connect();
  impl->StopWork(false);
  ASSERT_TRUE(Clock().AwaitParked(5s));
  EXPECT_FALSE(impl->GetDriverInteract());
  Forget();
  Clock().Advance(5s);
  ASSERT_TRUE(Gate().AwaitCount("CPortClient::Wait", 1));
  EXPECT_TRUE(impl->GetDriverInteract());
}

TEST_F(ConnectionWorker, TheEndOfAnAttemptWakesThePolicyWorker) {
  Settings().refreshInterval = 2000;  // the refresh threads of ended attempts end with the next one
  Connect();
  ApplyPolicyOnce();
  Gate().FailAlways("CPortClient::Connect", Failure::kStandard);
  impl->StopWork(false);
  EXPECT_TRUE(EndedAttemptsWakeThePolicyWorker());
}

TEST_F(ConnectionWorker, ThePolicyWorkerIsWokenOnlyAfterTheShutdown) {
  Settings().refreshInterval = 2000;
  Connect();
  ApplyPolicyOnce();
  Gate().FailAlways("CPortClient::Connect", Failure::kStandard);
  Gate().FailAlways("CPortClient::Close", Failure::kStandard);
  EXPECT_THROW(impl->StopWork(false), std::runtime_error);
  for (int end = 0; end < 50; ++end) {
    ASSERT_TRUE(EndAttempt());
    ASSERT_FALSE(PolicyWorkerPolls()) << "nothing follows a failed shutdown";
  }
}

TEST_F(ConnectionWorker, ThePolicyWorkerIsWokenBeforeTheAttemptIsCounted) {
  Settings().refreshInterval = 2000;
  Gate().FailAlways("CLog::LogAlert", Failure::kStandard);
  RunAttempts(10);
  ASSERT_GE(Gate().Count("CLog::LogAlert"), 1u) << "every count from here on fails";
  Settings().waitBlocks = true;
  Clock().Advance(5s);
  ASSERT_TRUE(Gate().AwaitCount("CPortClient::Wait", 11));
  ApplyPolicyOnce();
  Gate().FailAlways("CPortClient::Connect", Failure::kStandard);
  impl->StopWork(false);
  EXPECT_TRUE(EndedAttemptsWakeThePolicyWorker());
}

TEST_F(ConnectionWorker, AStopDuringTheNextConstructionAppliesToThePreviousInterface) {
  RunAttempts(1);
  Forget();
  Gate().OnCall("CGlobalContext::GetNet", [&] { impl->StopWork(false); });
  Settings().waitBlocks = true;
  Clock().Advance(5s);
  ASSERT_TRUE(Gate().AwaitCount("CPortClient::Wait", 1));
  EXPECT_TRUE(impl->GetDriverInteract());
}

TEST_P(ConnectionWorkerFailure, AFailedAttemptIsReportedAndRetried) {
  Gate().FailAt("CPortClient::Connect", 1, GetParam());
  RunAttempts(1);
  EXPECT_EQ(Gate().EntriesOf({"CLog::"}), Lines{Problem(InnerReport(GetParam()))});
  const Lines calls = Gate().EntriesOf({"CLog::", "CPortClient::Close", "CRecordRegistration", "CNetObject"});
  EXPECT_EQ(calls, (Lines{Problem(InnerReport(GetParam())), "CPortClient::Close()", "CRecordRegistration::Withdraw()",
                          "CNetObject::Release(0)"}))
      << "the report comes before the cleanup";
  Forget();
  RunAttempts(2);
  EXPECT_EQ(Gate().Count("CLog::LogProblem"), 0u);
  EXPECT_EQ(Gate().EntriesOf({"CLog::"}).back(), Event("Driver interact exit."));
}

TEST_P(ConnectionWorkerFailure, AFailureOutsideTheAttemptIsReportedByTheOuterHandler) {
  Gate().FailAt("CPortClient::Close", 1, GetParam());
  RunAttempts(1);
  EXPECT_EQ(Gate().EntriesOf({"CLog::"}).back(), Problem(OuterReport(GetParam())));
  EXPECT_EQ(Gate().Count("CLog::LogProblem"), 1u);
  EXPECT_EQ(Clock().Pauses().back(), (ManualClock::PauseRecord{ManualClock::Kind::kPause, 5s}));
  Forget();
  RunAttempts(2);
  EXPECT_EQ(Gate().EntriesOf({"CLog::"}).back(), Event("Driver interact exit."));
}

TEST_P(ConnectionWorkerFailure, AFailureOutsideTheAttemptCountsToo) {
  Gate().FailAlways("CPortClient::Close", GetParam());
  RunAttempts(9);
  EXPECT_EQ(Gate().Count("CLog::LogAlert"), 0u);
  RunAttempts(10);
  EXPECT_EQ(Gate().Count(kAlert), 1u);
}

TEST_P(ConnectionWorkerFailure, TheWorkerSurvivesAFailingReport) {
  Gate().FailAlways("CPortClient::Connect", Failure::kStandard);
  Gate().FailAlways("CLog::LogProblem", GetParam());
  RunAttempts(3);
  // Each attempt's report, and the report that writing it failed.
  EXPECT_EQ(Gate().EntriesOf({"CLog::LogProblem"}),
            (Lines{Problem(InnerReport(Failure::kStandard)), Problem(OuterReport(GetParam())),
                   Problem(InnerReport(Failure::kStandard)), Problem(OuterReport(GetParam())),
                   Problem(InnerReport(Failure::kStandard)), Problem(OuterReport(GetParam()))}));
  Gate().StopFailing();
  Forget();
  RunAttempts(4);
  EXPECT_EQ(Gate().EntriesOf({"CLog::"}).back(), Event("Driver interact exit."));
}

TEST_P(ConnectionWorkerFailure, TheWorkerSurvivesAFailingAlertAndRepeatsIt) {
  Gate().FailAlways("CLog::LogAlert", GetParam());
  RunAttempts(12);
  EXPECT_GE(Gate().Count("CLog::LogAlert"), 3u) << "an alert that could not be logged is repeated";
}

TEST_P(ConnectionWorkerFailure, AFailingMessageConversionLosesNoReport) {
  Gate().FailAt("CPortClient::Close", 1, Failure::kBoostSystem);
  Gate().FailAt("CUtility::ConvertText", 1, GetParam());
  RunAttempts(1);
  const Lines problems = Gate().EntriesOf({"CLog::LogProblem"});
  ASSERT_EQ(problems.size(), 1u);
  EXPECT_EQ(problems[0].rfind("CLog::LogProblem(0x10003, [dci,tiwk-2,BSTE] code=generic:", 0), 0u) << problems[0];
}

TEST_P(ConnectionWorkerFailure, AFailingLineOfTheSecondWorkerIsReportedAndTheWorkerEndsOnItsNextTry) {
  Connect();
  Gate().FailAt("CLog::LogProblem", 1, GetParam());
  std::atomic<bool> ended{false};
  std::thread second([&] {
    impl->ConnectionWorker();
    ended = true;
  });
  ASSERT_TRUE(Clock().AwaitParked(5s));
  EXPECT_FALSE(ended);
  Clock().Advance(5s);
  second.join();
  EXPECT_EQ(Gate().EntriesOf({"CLog::LogProblem"}),
            (Lines{Problem("[dci,tiwk] There is another thread doing work. We should exit."),
                   Problem(OuterReport(GetParam())),
                   Problem("[dci,tiwk] There is another thread doing work. We should exit.")}));
}

INSTANTIATE_TEST_SUITE_P(Failures, ConnectionWorkerFailure, ::testing::ValuesIn(kAllFailures));

TEST_F(ConnectionWorker, ReportsAreNotTranslated) {
  Settings().translate = [](const std::string& text) { return "<" + text + ">"; };
  Gate().FailAt("CPortClient::Connect", 1, Failure::kStandard);
  Gate().FailAt("CPortClient::Close", 1, Failure::kPoco);
  RunAttempts(1);
  EXPECT_EQ(Gate().EntriesOf({"CLog::", "CLocale::"}),
            (Lines{Problem(InnerReport(Failure::kStandard)), Problem(OuterReport(Failure::kPoco))}));
}

// ---------------------------------------------------------------- counting

TEST_F(ConnectionWorker, TheTenthAttemptWithinTenMinutesRaisesTheAlertAndResetsTheCount) {
  RunAttempts(9);
  EXPECT_EQ(Gate().Count("CLog::LogAlert"), 0u);
  RunAttempts(10);
  EXPECT_EQ(Gate().Count(kAlert), 1u);
  RunAttempts(19);
  EXPECT_EQ(Gate().Count("CLog::LogAlert"), 1u);
  RunAttempts(20);
  EXPECT_EQ(Gate().Count(kAlert), 2u);
}

TEST_F(ConnectionWorker, AttemptsStoppedByTheHostCountToo) {
  Settings().waitBlocks = true;
  StartConnectionWorker();
  for (std::size_t attempt = 1; attempt <= 10; ++attempt) {
    ASSERT_TRUE(Gate().AwaitCount("CPortClient::Wait", attempt));
    EXPECT_EQ(Gate().Count("CLog::LogAlert"), 0u);
    impl->StopWork(false);
    ASSERT_TRUE(Clock().AwaitPauses(5s, attempt));
    ASSERT_TRUE(Clock().AwaitParked(5s));
    if (attempt < 10) Clock().Advance(5s);
  }
  EXPECT_EQ(Gate().Count(kAlert), 1u);
}

TEST_F(ConnectionWorker, TheAlertIsTranslated) {
  Settings().translate = [](const std::string& text) { return "<" + text + ">"; };
  CFenluxImpl::FailureTimes times(9, Clock().Now());
  impl->RecordConnectionFailure(times);
  EXPECT_EQ(Logged(), Lines{"CLog::LogAlert(0x10003, <Connection with driver failed for a long time!>)"});
}

TEST_F(ConnectionWorker, AnEntryExactlyTenMinutesOldIsDroppedBeforeCounting) {
  CFenluxImpl::FailureTimes times;
  for (int i = 0; i < 9; ++i) impl->RecordConnectionFailure(times);
  EXPECT_EQ(times.size(), 9u);
  Clock().Advance(600s);
  impl->RecordConnectionFailure(times);
  EXPECT_EQ(times.size(), 1u);
  EXPECT_TRUE(Gate().Entries().empty());
}

TEST_F(ConnectionWorker, AnEntryJustUnderTenMinutesOldIsKept) {
  CFenluxImpl::FailureTimes times;
  for (int i = 0; i < 9; ++i) impl->RecordConnectionFailure(times);
  Clock().Advance(599'999ms);
  impl->RecordConnectionFailure(times);
  EXPECT_EQ(Logged(), Lines{kAlert});
  EXPECT_TRUE(times.empty());
}

TEST_F(ConnectionWorker, OnlyOldEntriesAreDropped) {
  CFenluxImpl::FailureTimes times;
  for (int i = 0; i < 9; ++i) {
    impl->RecordConnectionFailure(times);
    Clock().Advance(60s);
  }
  Clock().Advance(61s);  // 601 seconds after the first, 541 after the second
  impl->RecordConnectionFailure(times);
  EXPECT_EQ(times.size(), 9u);
  EXPECT_TRUE(Gate().Entries().empty());
  impl->RecordConnectionFailure(times);
  EXPECT_EQ(Logged(), Lines{kAlert});
}

TEST_F(ConnectionWorker, AttemptsAMinuteApartRaiseTheAlertAndSlowerOnesDoNot) {
  CFenluxImpl::FailureTimes times;
  for (int i = 0; i < 10; ++i) {
    impl->RecordConnectionFailure(times);
    Clock().Advance(66s);  // ten of them span 594 seconds
  }
  EXPECT_EQ(Logged(), Lines{kAlert});
  times.clear();
  Forget();
  for (int i = 0; i < 100; ++i) {
    impl->RecordConnectionFailure(times);
    Clock().Advance(67s);  // ten of them span 603
  }
  EXPECT_TRUE(Logged().empty());
  EXPECT_EQ(times.size(), 9u);
}

}  // namespace fenlux::testing
