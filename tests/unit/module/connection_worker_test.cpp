// The connection worker: attempts five seconds apart, reports of what ended them, the alert at the tenth in ten
// minutes.
#include "tests/unit/module/worker_test.h"

namespace fenlux::testing {
namespace {

const std::string kAlert = "CLog::LogAlert(0x10003, Connection with driver failed for a long time!)";

class ConnectionWorker : public WorkerTest {
 protected:
  // Attempts that end at once, until `count` of them are over since the start of the test.
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
  // Ends attempts until the policy worker, which nobody else wakes, polls for a driver. An end that comes before its
  // wait has begun passes it by; false where that many did.
  bool EndsWakeThePolicyWorker(int ends) {
    for (int end = 0; end < ends; ++end) {
      if (!Clock().AwaitParked(5s)) break;
      if (Clock().Parked(100ms) != 0) return true;
      const std::size_t before = Attempts();
      Clock().Advance(5s);
      if (!Clock().AwaitPauses(5s, before + 1)) break;
      if (end + 1 == ends) return false;
    }
    ADD_FAILURE() << "the attempts do not go on";
    return false;
  }
  // A policy worker that has applied the policy and gone to its wait, or is on the way to it.
  void ApplyPolicyOnce() {
    StartPolicyWorker();
    ASSERT_TRUE(Gate().AwaitCount("CPortClient::Send(24, no reply, true)", 1));
  }

 private:
  bool started = false;
};

class ConnectionWorkerFailure : public ConnectionWorker, public ::testing::WithParamInterface<Failure> {};

}  // namespace

TEST_F(ConnectionWorker, ASecondOneSaysSoOnceAndEnds) {
  Connect();
  impl->ConnectionWorker();
  EXPECT_EQ(Gate().Entries(), (Lines{"CGlobalContext::GetLocale()",
                                     Translation("[dci,tiwk] There is another thread doing work. We should exit."),
                                     Problem("[dci,tiwk] There is another thread doing work. We should exit.")}));
  EXPECT_TRUE(impl->GetDriverInteract()) << "the first one goes on undisturbed";
}

TEST_F(ConnectionWorker, AnEndedAttemptIsTidiedUpAndFollowedFiveSecondsLater) {
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

TEST_F(ConnectionWorker, TheInterfaceBeforeIsReleasedBetweenSwapAndRunAndOutsideTheLock) {
  RunAttempts(1);
  Forget();
  bool reached = false;
  Gate().OnCall("CPortClient::Close", [&] {
    // The first Close from here on is that of the destructor. Whoever asks for the interface must not have to wait.
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
  EXPECT_EQ(Gate().Count("CRecordRegistration::Withdraw"), 1u) << "of the second interface alone";
}

TEST_F(ConnectionWorker, AFailedConstructionLeavesTheInterfaceBeforeInPlaceAndCounts) {
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

TEST_F(ConnectionWorker, StopWorkEndsTheAttemptAndANewOneComes) {
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
  EXPECT_TRUE(EndsWakeThePolicyWorker(1000));
}

TEST_F(ConnectionWorker, ThePolicyWorkerIsWokenOnlyAfterTheShutdown) {
  Settings().refreshInterval = 2000;
  Connect();
  ApplyPolicyOnce();
  Gate().FailAlways("CPortClient::Connect", Failure::kStandard);
  Gate().FailAlways("CPortClient::Close", Failure::kStandard);
  EXPECT_THROW(impl->StopWork(false), std::runtime_error);
  EXPECT_FALSE(EndsWakeThePolicyWorker(50)) << "a shutdown that fails leaves nothing to come after it";
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
  EXPECT_TRUE(EndsWakeThePolicyWorker(1000));
}

TEST_F(ConnectionWorker, AStopDuringTheConstructionOfTheNextInterfaceIsForTheOneBefore) {
  RunAttempts(1);
  Forget();
  Gate().OnCall("CGlobalContext::GetNet", [&] { impl->StopWork(false); });
  Settings().waitBlocks = true;
  Clock().Advance(5s);
  ASSERT_TRUE(Gate().AwaitCount("CPortClient::Wait", 1));
  EXPECT_TRUE(impl->GetDriverInteract());
}

TEST_P(ConnectionWorkerFailure, OfAnAttemptIsReportedAndTheAttemptRepeated) {
  Gate().FailAt("CPortClient::Connect", 1, GetParam());
  RunAttempts(1);
  EXPECT_EQ(Gate().EntriesOf({"CLog::"}), Lines{Problem(InnerReport(GetParam()))});
  const Lines calls = Gate().EntriesOf({"CLog::", "CPortClient::Close", "CRecordRegistration", "CNetObject"});
  EXPECT_EQ(calls, (Lines{Problem(InnerReport(GetParam())), "CPortClient::Close()", "CRecordRegistration::Withdraw()",
                          "CNetObject::Release(0)"}))
      << "the report comes before the tidying";
  Forget();
  RunAttempts(2);
  EXPECT_EQ(Gate().Count("CLog::LogProblem"), 0u);
  EXPECT_EQ(Gate().EntriesOf({"CLog::"}).back(), Event("Driver interact exit."));
}

TEST_P(ConnectionWorkerFailure, OutsideTheAttemptIsReportedByTheOuterHandler) {
  Gate().FailAt("CPortClient::Close", 1, GetParam());
  RunAttempts(1);
  EXPECT_EQ(Gate().EntriesOf({"CLog::"}).back(), Problem(OuterReport(GetParam())));
  EXPECT_EQ(Gate().Count("CLog::LogProblem"), 1u);
  EXPECT_EQ(Clock().Pauses().back(), (ManualClock::PauseRecord{ManualClock::Kind::kPause, 5s}));
  Forget();
  RunAttempts(2);
  EXPECT_EQ(Gate().EntriesOf({"CLog::"}).back(), Event("Driver interact exit."));
}

TEST_P(ConnectionWorkerFailure, OutsideTheAttemptCountsToo) {
  Gate().FailAlways("CPortClient::Close", GetParam());
  RunAttempts(9);
  EXPECT_EQ(Gate().Count("CLog::LogAlert"), 0u);
  RunAttempts(10);
  EXPECT_EQ(Gate().Count(kAlert), 1u);
}

TEST_P(ConnectionWorkerFailure, OfTheReportItselfIsSurvived) {
  Gate().FailAlways("CPortClient::Connect", Failure::kStandard);
  Gate().FailAlways("CLog::LogProblem", GetParam());
  RunAttempts(3);
  // Each attempt's report, and the report of its failure.
  EXPECT_EQ(Gate().EntriesOf({"CLog::LogProblem"}),
            (Lines{Problem(InnerReport(Failure::kStandard)), Problem(OuterReport(GetParam())),
                   Problem(InnerReport(Failure::kStandard)), Problem(OuterReport(GetParam())),
                   Problem(InnerReport(Failure::kStandard)), Problem(OuterReport(GetParam()))}));
  Gate().StopFailing();
  Forget();
  RunAttempts(4);
  EXPECT_EQ(Gate().EntriesOf({"CLog::"}).back(), Event("Driver interact exit."));
}

TEST_P(ConnectionWorkerFailure, OfTheAlertIsSurvived) {
  Gate().FailAlways("CLog::LogAlert", GetParam());
  RunAttempts(12);
  EXPECT_GE(Gate().Count("CLog::LogAlert"), 3u) << "what could not be said is said again";
}

TEST_P(ConnectionWorkerFailure, OfTheMessageConversionLosesNoReport) {
  Gate().FailAt("CPortClient::Close", 1, Failure::kBoostSystem);
  Gate().FailAt("CUtility::ConvertText", 1, GetParam());
  RunAttempts(1);
  const Lines problems = Gate().EntriesOf({"CLog::LogProblem"});
  ASSERT_EQ(problems.size(), 1u);
  EXPECT_EQ(problems[0].rfind("CLog::LogProblem(0x10003, [dci,tiwk-2,BSTE] code=generic:", 0), 0u) << problems[0];
}

TEST_P(ConnectionWorkerFailure, OfTheSecondWorkersLineIsReportedAndTheWorkerEndsWithTheNextTry) {
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

TEST_F(ConnectionWorker, ReportsAreLoggedAsTheyWereMade) {
  Settings().translate = [](const std::string& text) { return "<" + text + ">"; };
  Gate().FailAt("CPortClient::Connect", 1, Failure::kStandard);
  Gate().FailAt("CPortClient::Close", 1, Failure::kPoco);
  RunAttempts(1);
  EXPECT_EQ(Gate().EntriesOf({"CLog::", "CLocale::"}),
            (Lines{Problem(InnerReport(Failure::kStandard)), Problem(OuterReport(Failure::kPoco))}));
}

// ---------------------------------------------------------------- counting

TEST_F(ConnectionWorker, TheTenthAttemptWithinTenMinutesRaisesTheAlertAndTheCountBeginsAnew) {
  RunAttempts(9);
  EXPECT_EQ(Gate().Count("CLog::LogAlert"), 0u);
  RunAttempts(10);
  EXPECT_EQ(Gate().Count(kAlert), 1u);
  RunAttempts(19);
  EXPECT_EQ(Gate().Count("CLog::LogAlert"), 1u);
  RunAttempts(20);
  EXPECT_EQ(Gate().Count(kAlert), 2u);
}

TEST_F(ConnectionWorker, AttemptsThatTheHostStoppedCountAsWell) {
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

TEST_F(ConnectionWorker, AnEntryOfLessIsKept) {
  CFenluxImpl::FailureTimes times;
  for (int i = 0; i < 9; ++i) impl->RecordConnectionFailure(times);
  Clock().Advance(599'999ms);
  impl->RecordConnectionFailure(times);
  EXPECT_EQ(Logged(), Lines{kAlert});
  EXPECT_TRUE(times.empty());
}

TEST_F(ConnectionWorker, OnlyTheOldOnesAreDropped) {
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

TEST_F(ConnectionWorker, AttemptsAMinuteApartRaiseTheAlertAndSlowerOnesNever) {
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
