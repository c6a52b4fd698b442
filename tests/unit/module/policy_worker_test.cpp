// The policy worker: its polls, sending the policy to the driver, its single wait and its pause after a failure.
#include "tests/support/turnstile.h"
#include "tests/unit/module/worker_test.h"

namespace fenlux::testing {
namespace {

const std::string kNotReady = Problem("[DCI,rc,STDE] info=DCI,DI not ready.");
constexpr char kLastCall[] = "CPortClient::Send(24, no reply, true)";

class PolicyWorker : public WorkerTest {
 protected:
  // Connects and waits until the policy worker has applied the policy once.
  void ApplyOnce() {
    Connect();
    StartPolicyWorker();
    ASSERT_TRUE(Gate().AwaitCount(kLastCall, 1));
  }

  // Triggers another pass and waits for its end.
  void ApplyAgain() {
    const std::size_t applied = Gate().Count(kLastCall);
    TriggerPass();
    ASSERT_TRUE(Gate().AwaitCount(kLastCall, applied + 1));
  }

  static std::string PassReport(Failure failure) { return Report("DCI,rc", failure); }
  static std::string Missing(const boost::filesystem::path& path) {
    return Problem("[dci,trc][Skip]Monitor object NOT exist. [obj]=" + path.string());
  }
  static std::string NoDirectory(const boost::filesystem::path& path) {
    return Problem("[dci,trc][Skip]Object is NOT directory(Only accept monitor dir).[Object]=" + path.string());
  }

  const Lines kDumpAndConfig{"CUtility::CreateBuffer(true, 65561, false)",
                             "CPortClient::Send(11, no reply, true)",
                             Translation("Please use Dbgview to get result."),
                             "CUtility::CreateBuffer(true, 65561, false)",
                             "CCfgEx::GetDriverConfigBlock()",
                             kLastCall};
  const Lines kCommit{"CUtility::CreateBuffer(true, 65561, false)", "CPortClient::Send(3, no reply, true)"};
};

class PolicyWorkerFailure : public PolicyWorker, public ::testing::WithParamInterface<Failure> {};

Lines Joined(std::initializer_list<Lines> parts) {
  Lines all;
  for (const Lines& part : parts) all.insert(all.end(), part.begin(), part.end());
  return all;
}

}  // namespace

// ---------------------------------------------------------------- polls

TEST_F(PolicyWorker, WithoutADriverOneReportIsLoggedPer600Polls) {
  Clock().PassAtOnce(100ms);
  StartPolicyWorker();
  for (std::size_t round = 1; round <= 3; ++round) {
    ASSERT_TRUE(Clock().AwaitParked(1s));
    EXPECT_EQ(Gate().Entries(), Lines(round, kNotReady));
    EXPECT_EQ(Clock().Pauses().size(), round * 601);
    EXPECT_EQ(Clock().Pauses().back(), (ManualClock::PauseRecord{ManualClock::Kind::kPause, 1s}));
    Clock().Advance(1s);
  }
  ASSERT_TRUE(Clock().AwaitParked(1s));
}

TEST_F(PolicyWorker, NothingIsReportedIfThe600thPollFindsTheDriver) {
  Clock().PassAtOnce(100ms, 599);
  StartPolicyWorker();
  ASSERT_TRUE(Clock().AwaitParked(100ms));  // in the pause after the 600th poll
  EXPECT_TRUE(Logged().empty());
  EXPECT_EQ(Clock().Pauses().size(), 600u);
  Clock().Advance(100ms);
  ASSERT_TRUE(Clock().AwaitParked(1s)) << "no 601st poll";
  EXPECT_EQ(Logged(), Lines{kNotReady});
}

TEST_F(PolicyWorker, FindingTheDriverResetsTheCount) {
  Clock().PassAtOnce(100ms, 500);
  StartPolicyWorker();
  ASSERT_TRUE(Clock().AwaitParked(100ms));
  Settings().waitBlocks = true;
  StartConnectionWorker();
  ASSERT_TRUE(Gate().AwaitCount("CPortClient::Wait", 1));
  Clock().Advance(100ms);
  ASSERT_TRUE(Gate().AwaitCount(kLastCall, 1));
  Clock().PassAtOnce(100ms);
  impl->StopWork(false);
  ASSERT_TRUE(Clock().AwaitParked(5s));
  // The worker may not have reached its wait before the connection ended.
  ASSERT_TRUE(RepeatUntil([] { return Clock().Parked(1s) != 0; }, [&] { impl->NotifyPolicyChanged(); }));
  std::size_t polls = 0;
  for (const auto& pause : Clock().Pauses()) polls += pause.duration == 100ms ? 1 : 0;
  EXPECT_EQ(polls, 501u + 600u);
  EXPECT_EQ(Gate().Count(kNotReady), 1u);
}

TEST_F(PolicyWorker, AStoppedDriverIsNotReady) {
  Connect();
  impl->GetDriverInteract()->StopInteract();
  StartPolicyWorker();
  ASSERT_TRUE(Clock().AwaitParked(100ms));
  EXPECT_EQ(Gate().Count("CCfgEx::GetMonitorPolicy"), 0u);
  ASSERT_TRUE(Clock().AwaitParked(5s));
}

// ---------------------------------------------------------------- the policy

TEST_F(PolicyWorker, AllDirectoriesAreSentInOneBatch) {
  const TemporaryDirectory directory;
  const auto one = directory.MakeDirectory("one"), two = directory.MakeDirectory("two");
  host.SetPolicy({one, two});
  ApplyOnce();
  const std::string a = one.string(), b = two.string();
  const std::string rootA = one.root_name().string(), rootB = two.root_name().string();
  EXPECT_EQ(Calls(),
            Joined({{"CCfgEx::GetMonitorPolicy()", "CPolicyObject::GetMonitorPath()", "CUtility::TestPath(" + a + ")",
                     "CUtility::ToNarrowString(" + a + ")", "CUtility::ToWideString(" + a + ")",
                     "CPolicyObject::GetMonitorPath()", "CUtility::TestPath(" + b + ")",
                     "CUtility::ToNarrowString(" + b + ")", "CUtility::ToWideString(" + b + ")"},
                    {"CUtility::CreateBuffer(true, 65561, false)", "CUtility::TestPath(" + a + ")",
                     "CUtility::CopyToField(8, " + rootA + ")", "CUtility::CopyToField(65536, " + a + ")",
                     "CPortClient::Send(1, no reply, true)", "CUtility::ToNarrowString(" + a + ")",
                     "CUtility::CreateBuffer(true, 65561, false)", "CUtility::TestPath(" + b + ")",
                     "CUtility::CopyToField(8, " + rootB + ")", "CUtility::CopyToField(65536, " + b + ")",
                     "CPortClient::Send(1, no reply, true)", "CUtility::ToNarrowString(" + b + ")"},
                    kCommit,
                    {Translation("[Add Monitor OK!][obj path]="), Event("[Add Monitor OK!][obj path]=" + a),
                     Event("[Add Monitor OK!][obj path]=" + b)},
                    kDumpAndConfig}));
}

TEST_F(PolicyWorker, ObjectsHaveTheModulesObjectType) {
  for (const bool flag : {true, false}) {
    Settings().monitorObjectFlag = flag;
    impl = Keep(std::make_shared<CFenluxImpl>(host.Context()));
    const TemporaryDirectory directory;
    host.SetPolicy({directory.Path()});
    ResetClock();
    ApplyOnce();
    const auto added = host.RequestsOf(1), committed = host.RequestsOf(3);
    ASSERT_EQ(added.size(), 1u);
    ASSERT_EQ(committed.size(), 1u);
    EXPECT_EQ(added[0].bytes.at(12), flag ? 1 : 2);
    EXPECT_EQ(committed[0].bytes.at(12), flag ? 1 : 2);
  }
}

TEST_F(PolicyWorker, AnEmptyListIsLoggedAndStillCommittedDumpedAndConfigured) {
  ApplyOnce();
  EXPECT_EQ(Calls(), Joined({{"CCfgEx::GetMonitorPolicy()", "CGlobalContext::GetLocale()",
                              Translation("[dci,trc]Monitor policy is empty-1."),
                              "CLog::LogNotice(0x10003, [dci,trc]Monitor policy is empty-1.)"},
                             kCommit,
                             kDumpAndConfig}));
}

TEST_F(PolicyWorker, AnEmptyHandleIsLoggedAndOnlyConfigured) {
  Gate().GiveEmpty("CCfgEx::GetMonitorPolicy");
  ApplyOnce();
  EXPECT_EQ(Calls(),
            (Lines{"CCfgEx::GetMonitorPolicy()", "CGlobalContext::GetLocale()",
                   Translation("[Driver]Monitor policy is empty-2."),
                   "CLog::LogNotice(0x10003, [Driver]Monitor policy is empty-2.)",
                   "CUtility::CreateBuffer(true, 65561, false)", "CCfgEx::GetDriverConfigBlock()", kLastCall}));
}

TEST_F(PolicyWorker, MissingPathsAndFilesAreSkipped) {
  const TemporaryDirectory directory;
  const auto missing = directory.Path() / "missing", file = directory.MakeFile("file"),
             last = directory.MakeDirectory("last"), below = file / "below";
  host.SetPolicy({missing, file, below, last});
  ApplyOnce();
  EXPECT_EQ(Logged(), (Lines{Missing(missing), NoDirectory(file), Missing(below),
                             Event("[Add Monitor OK!][obj path]=" + last.string())}));
  EXPECT_EQ(host.RequestsOf(1).size(), 1u);
  EXPECT_EQ(Gate().Count("CUtility::TestPath(" + missing.string() + ")"), 0u) << "a missing path is not tested";
}

TEST_F(PolicyWorker, TheHostDecidesWhetherAPathIsADirectory) {
  const TemporaryDirectory directory;
  const auto refused = directory.MakeDirectory("refused"), accepted = directory.MakeFile("accepted");
  Settings().testPath = [accepted](const boost::filesystem::path& path) { return path == accepted; };
  host.SetPolicy({refused, accepted});
  ApplyOnce();
  EXPECT_EQ(Logged(), (Lines{NoDirectory(refused), Event("[Add Monitor OK!][obj path]=" + accepted.string())}));
}

TEST_F(PolicyWorker, TheSkipLinesAreTranslatedBeforeThePathIsAppended) {
  const TemporaryDirectory directory;
  const auto missing = directory.Path() / "missing", file = directory.MakeFile("file");
  Settings().translate = [](const std::string& text) { return "<" + text + ">"; };
  host.SetPolicy({missing, file});
  ApplyOnce();
  EXPECT_EQ(
      Gate().EntriesOf({"CLog::LogProblem"}),
      (Lines{Problem("<[dci,trc][Skip]Monitor object NOT exist. [obj]=>" + missing.string()),
             Problem("<[dci,trc][Skip]Object is NOT directory(Only accept monitor dir).[Object]=>" + file.string())}));
}

TEST_F(PolicyWorker, WithoutALocaleServiceTheLinesAreNotTranslated) {
  Connect();
  Gate().GiveEmpty("CGlobalContext::GetLocale");
  Settings().translate = [](const std::string& text) { return "<" + text + ">"; };
  StartPolicyWorker();
  ASSERT_TRUE(Gate().AwaitCount(kLastCall, 1));
  EXPECT_EQ(Logged(), Lines{"CLog::LogNotice(0x10003, [dci,trc]Monitor policy is empty-1.)"});
}

TEST_F(PolicyWorker, ANullPolicyObjectIsSkipped) {
  const TemporaryDirectory directory;
  host.SetPolicy({std::nullopt, directory.Path(), std::nullopt});
  ApplyOnce();
  EXPECT_EQ(Logged(), Lines{Event("[Add Monitor OK!][obj path]=" + directory.Path().string())});
}

TEST_F(PolicyWorker, NonAsciiPathsAreSentUnchanged) {
  const TemporaryDirectory directory;
#if defined(_WIN32)
  const boost::filesystem::path named = directory.Path() / L"\u00E9\u20AC";
#else
  const boost::filesystem::path named = directory.Path() / "\xC3\xA9\xE2\x82\xAC";
#endif
  boost::filesystem::create_directories(named);
  host.SetPolicy({named});
  ApplyOnce();
  const auto added = host.RequestsOf(1);
  ASSERT_EQ(added.size(), 1u);
  const Bytes tail = Utf16(u"\u00E9\u20AC");
  const Bytes& bytes = added[0].bytes;
  EXPECT_NE(std::search(bytes.begin() + 25, bytes.end(), tail.begin(), tail.end()), bytes.end());
}

TEST_F(PolicyWorker, AFailedSendOfAnObjectDoesNotEndThePass) {
  const TemporaryDirectory directory;
  host.SetPolicy({directory.Path()});
  Connect();
  Gate().FailAt("CPortClient::Send", 1, Failure::kStandard);
  StartPolicyWorker();
  ASSERT_TRUE(Gate().AwaitCount(kLastCall, 1));
  EXPECT_EQ(Logged(), Lines{Problem("[wdi,wdpm]Add Monitor All Failed!")});
}

// ---------------------------------------------------------------- waking up

TEST_F(PolicyWorker, AChangedPolicyIsAppliedOnNotification) {
  const TemporaryDirectory directory;
  const auto one = directory.MakeDirectory("one"), two = directory.MakeDirectory("two");
  host.SetPolicy({one});
  ApplyOnce();
  host.SetPolicy({two});
  Forget();
  ApplyAgain();
  EXPECT_EQ(Logged(), Lines{Event("[Add Monitor OK!][obj path]=" + two.string())});
  Forget();
  ApplyAgain();
  EXPECT_EQ(Gate().Count("CCfgEx::GetMonitorPolicy"), 1u);
}

TEST_F(PolicyWorker, OneNotificationWakesEveryWorker) {
  Connect();
  StartPolicyWorker();
  StartPolicyWorker();
  ASSERT_TRUE(Gate().AwaitCount(kLastCall, 2));
  std::size_t woken = 0;
  // A worker that is not waiting yet misses the notification; the next round wakes it.
  EXPECT_TRUE(RepeatUntil([&] { return woken == 2; },
                          [&] {
                            const auto begun = std::make_shared<Turnstile>();
                            const std::size_t applied = Gate().Count(kLastCall);
                            Gate().OnCall("CCfgEx::GetMonitorPolicy", [begun] { begun->Pass(); });
                            impl->NotifyPolicyChanged();
                            for (int turn = 0; turn < 5000 && begun->Arrivals() < 2; ++turn) std::this_thread::yield();
                            Gate().RemoveHook("CCfgEx::GetMonitorPolicy");
                            woken = begun->Arrivals();
                            begun->Open();
                            EXPECT_TRUE(Gate().AwaitCount(kLastCall, applied + woken));
                          }));
}

TEST_F(PolicyWorker, ANewConnectionGetsThePolicyAgain) {
  const TemporaryDirectory directory;
  host.SetPolicy({directory.Path()});
  ApplyOnce();
  impl->StopWork(false);
  ASSERT_TRUE(Clock().AwaitParked(5s));
  // The end of the attempt wakes the policy worker; if it was not waiting yet, the host must.
  ASSERT_TRUE(RepeatUntil([] { return Clock().Parked(100ms) != 0; }, [&] { impl->NotifyPolicyChanged(); }));
  Forget();
  Clock().Advance(5s);
  ASSERT_TRUE(Gate().AwaitCount("CPortClient::Wait", 1));
  ASSERT_TRUE(RepeatUntil([&] { return Gate().Count(kLastCall) != 0; }, [] { Clock().Advance(100ms); }));
  EXPECT_EQ(host.RequestsOf(1).size(), 1u);
}

TEST_F(PolicyWorker, HoldsNoLockOfTheModuleWhileApplyingThePolicy) {
  const TemporaryDirectory directory;
  host.SetPolicy({directory.Path()});
  Connect();
  bool reached = false;
  Gate().OnCall("CCfgEx::GetDriverConfigBlock", [&] {
    std::thread([&] {
      impl->NotifyPolicyChanged();
      impl->GetDriverInteract();
    }).join();
    reached = true;
  });
  StartPolicyWorker();
  ASSERT_TRUE(Gate().AwaitCount(kLastCall, 1));
  EXPECT_TRUE(reached);
}

TEST_F(PolicyWorker, ReleasesThePolicyBeforeSendingTheConfiguration) {
  const TemporaryDirectory directory;
  host.SetPolicy({directory.Path()});
  Connect();
  bool heldWhileRead = false, releasedAfterwards = false;
  Gate().OnCall("CPolicyObject::GetMonitorPath", [&] { heldWhileRead = !host.IsPolicyReleased(); });
  Gate().OnCall("CCfgEx::GetDriverConfigBlock", [&] { releasedAfterwards = host.IsPolicyReleased(); });
  StartPolicyWorker();
  ASSERT_TRUE(Gate().AwaitCount(kLastCall, 1));
  EXPECT_TRUE(heldWhileRead);
  EXPECT_TRUE(releasedAfterwards);
}

TEST_F(PolicyWorker, KeepsTheInterfaceAliveWhileWaitingAndReleasesItOnWakeup) {
  ApplyOnce();
  const std::weak_ptr<CWinDriverInteract> first = impl->GetReadyDriverInteract();
  // An attempt whose shutdown fails does not wake the policy worker.
  Gate().FailAlways("CPortClient::Close", Failure::kStandard);
  EXPECT_THROW(impl->StopWork(false), std::runtime_error);
  ASSERT_TRUE(Clock().AwaitParked(5s));
  Gate().StopFailing();
  Clock().Advance(5s);
  ASSERT_TRUE(Gate().AwaitCount("CPortClient::Wait", 1));
  EXPECT_FALSE(first.expired()) << "replaced, but held by the waiting worker";
  ApplyAgain();
  EXPECT_TRUE(first.expired());
}

TEST_F(PolicyWorker, KeepsTheInterfaceAliveWhileApplyingThePolicy) {
  Connect();
  const auto applying = std::make_shared<Turnstile>();
  Gate().OnCall("CCfgEx::GetMonitorPolicy", [applying] { applying->Pass(); });
  StartPolicyWorker();
  ASSERT_TRUE(applying->AwaitArrivals(1));
  std::weak_ptr<CWinDriverInteract> first = impl->GetReadyDriverInteract();
  Gate().RemoveHook("CCfgEx::GetMonitorPolicy");
  impl->StopWork(false);
  ASSERT_TRUE(Clock().AwaitParked(5s));
  Clock().Advance(5s);
  ASSERT_TRUE(Gate().AwaitCount("CPortClient::Wait", 1));
  EXPECT_FALSE(first.expired()) << "replaced, but still being used";
  applying->Open();
  ASSERT_TRUE(Gate().AwaitCount(kLastCall, 1));
}

// ---------------------------------------------------------------- failures

TEST_P(PolicyWorkerFailure, AFailedPassIsReportedAndRetriedAfterASecond) {
  const TemporaryDirectory directory;
  host.SetPolicy({directory.Path()});
  struct Case {
    const char* operation;
    std::size_t n;
  };
  // Calls that are not guarded inside the pass. The first ToNarrowString is the policy worker's own.
  const Case cases[] = {{"CCfgEx::GetMonitorPolicy", 1},
                        {"CPolicyObject::GetMonitorPath", 1},
                        {"CUtility::TestPath", 1},
                        {"CUtility::ToNarrowString", 1},
                        {"CUtility::ToWideString", 1},
                        {"CCfgEx::GetDriverConfigBlock", 1},
                        {"CPortClient::Send", 3 /*11*/},
                        {"CPortClient::Send", 4 /*24*/},
                        {"CLocale::TranslateText", 2 /*the dump's advice*/}};
  for (const Case& one : cases) {
    impl = Keep(std::make_shared<CFenluxImpl>(host.Context()));
    ResetClock();
    Connect();
    Gate().FailAt(one.operation, one.n, GetParam());
    StartPolicyWorker();
    ASSERT_TRUE(Clock().AwaitParked(1s)) << one.operation;
    EXPECT_EQ(Gate().FailedOperation(), one.operation);
    EXPECT_EQ(Gate().EntriesOf({"CLog::LogProblem"}), Lines{Problem(PassReport(GetParam()))}) << one.operation;
    Forget();
    Clock().Advance(1s);
    ASSERT_TRUE(Gate().AwaitCount(kLastCall, 1));
    EXPECT_EQ(host.RequestsOf(1).size(), 1u) << one.operation;
  }
}

TEST_P(PolicyWorkerFailure, AFailingObjectEndsThePassBeforeTheOthers) {
  const TemporaryDirectory directory;
  const auto one = directory.MakeDirectory("one"), two = directory.MakeDirectory("two");
  host.SetPolicy({one, two});
  Connect();
  Gate().FailAt("CUtility::TestPath", 2, GetParam());
  StartPolicyWorker();
  ASSERT_TRUE(Clock().AwaitParked(1s));
  EXPECT_TRUE(host.Requests().empty()) << "nothing is sent in such a pass";
  Clock().Advance(1s);
  ASSERT_TRUE(Gate().AwaitCount(kLastCall, 1));
  EXPECT_EQ(host.RequestsOf(1).size(), 3u) << "the object that was queued in the failed pass, and both of the next";
}

TEST_P(PolicyWorkerFailure, TheWorkerSurvivesAFailingReport) {
  Clock().PassAtOnce(100ms);
  Gate().FailAlways("CLog::LogProblem", GetParam());
  StartPolicyWorker();
  for (std::size_t round = 1; round <= 3; ++round) {
    ASSERT_TRUE(Clock().AwaitParked(1s));
    EXPECT_EQ(Gate().Count("CLog::LogProblem"), round);
    Clock().Advance(1s);
  }
  ASSERT_TRUE(Clock().AwaitParked(1s));
}

TEST_P(PolicyWorkerFailure, AFailingSkipLineEndsThePass) {
  const TemporaryDirectory directory;
  host.SetPolicy({directory.Path() / "missing"});
  Connect();
  Gate().FailAt("CLog::LogProblem", 1, GetParam());
  StartPolicyWorker();
  ASSERT_TRUE(Clock().AwaitParked(1s));
  EXPECT_EQ(Gate().EntriesOf({"CLog::LogProblem"}),
            (Lines{Missing(directory.Path() / "missing"), Problem(PassReport(GetParam()))}));
}

INSTANTIATE_TEST_SUITE_P(Failures, PolicyWorkerFailure, ::testing::ValuesIn(kAllFailures));

TEST_F(PolicyWorker, APathWithUnreadableStatusEndsThePassWhichIsRetriedEverySecond) {
#if defined(_WIN32)
  GTEST_SKIP() << "a link that leads to itself cannot be made without privileges here";
#endif
  const TemporaryDirectory directory;
  const auto loop = directory.Path() / "loop", good = directory.MakeDirectory("good");
  boost::filesystem::create_symlink(loop, loop);
  std::string message;
  try {
    boost::filesystem::status(loop);
  } catch (const boost::filesystem::filesystem_error& error) {
    message = error.what();
  }
  ASSERT_FALSE(message.empty()) << "the path library has to throw for such a path";
  host.SetPolicy({loop, good});
  Connect();
  StartPolicyWorker();
  for (std::size_t round = 1; round <= 3; ++round) {
    if (round > 1) Clock().Advance(1s);
    ASSERT_TRUE(Clock().AwaitParked(1s));
    EXPECT_EQ(Logged(), Lines(round, Problem("[DCI,rc,STDE] info=" + message)));
    EXPECT_TRUE(host.Requests().empty());
  }
  boost::filesystem::remove(loop);
  Clock().Advance(1s);
  ASSERT_TRUE(Gate().AwaitCount(kLastCall, 1)) << "readable again";
}

}  // namespace fenlux::testing
