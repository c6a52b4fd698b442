// The refresh thread: its start, its pauses on the wall clock, its one-way stop.
#include "procinfo/auto_refresh_process_info.h"

#include "tests/support/no_threads.h"
#include "tests/unit/module/module_test.h"

namespace fenlux::testing {
namespace {

const std::string kStartLine = "CUtility::WriteLog(0x10003, Auto refresh process info thread start..., 7)";
const std::string kExitLine = "CUtility::WriteLog(0x10003, Auto refresh process info thread exit., 7)";

class RefreshThread : public ModuleTest {
 protected:
  RefreshThread() { Settings().refreshInterval = 250; }

  std::shared_ptr<CAutoRefreshProcessInfo> Created() {
    auto info = std::make_shared<CAutoRefreshProcessInfo>(host.Context());
    Forget();
    return info;
  }
  std::shared_ptr<CAutoRefreshProcessInfo> Started() {
    auto info = Created();
    info->Start();
    EXPECT_TRUE(Clock().AwaitParked(250ms));
    return info;
  }
  bool IsFilled(CAutoRefreshProcessInfo& info) {
    std::shared_ptr<CArpRecord> record;
    host.ArpMgmt()->CreateRecord(record, 0);
    const auto process = record->ProcessPart();
    const auto before = Gate().Count("CArpProcess::GetProcessId");
    info.FillEventProcessInfo(*record, *process, nullptr);
    return Gate().Count("CArpProcess::GetProcessId") > before;
  }
};

}  // namespace

TEST_F(RefreshThread, LogsItsStartReadsTheIntervalAndPauses) {
  const auto info = Started();
  EXPECT_EQ(Gate().Entries(), (Lines{kStartLine, "CCfgEx::GetRefreshInterval()"}));
  EXPECT_EQ(Clock().Pauses(), (std::vector<ManualClock::PauseRecord>{{ManualClock::Kind::kWallClock, 250ms}}));
  info->StopRefresh();
}

TEST_F(RefreshThread, ReadsTheIntervalBeforeEveryPause) {
  const auto info = Started();
  Settings().refreshInterval = 700;
  Clock().Advance(250ms);
  ASSERT_TRUE(Clock().AwaitParked(700ms));
  Settings().refreshInterval = 0xFFFFFFFF;
  Clock().Advance(700ms);
  ASSERT_TRUE(Clock().AwaitParked(std::chrono::milliseconds(0xFFFFFFFF))) << "the whole range of the setting";
  info->StopRefresh();
}

TEST_F(RefreshThread, RefreshesAfterEveryPause) {
  const auto info = Started();
  Settings().running = [] { return std::set<std::uint64_t>{42}; };
  info->GetProcessInfo(42);
  for (std::size_t pass = 1; pass <= 3; ++pass) {
    Clock().Advance(250ms);
    ASSERT_TRUE(Clock().AwaitPauses(250ms, pass + 1));
    ASSERT_TRUE(Clock().AwaitParked(250ms));
    EXPECT_EQ(Gate().Count("CWinWork::GetRunningProcessIds"), pass);
  }
  info->StopRefresh();
}

TEST_F(RefreshThread, AnIntervalOf0RefreshesBackToBack) {
  Settings().refreshInterval = 0;
  Clock().PassAtOnce(0ms, 5);
  const auto info = Created();
  info->RefreshAll();
  info->GetProcessInfo(42);
  Settings().running = [] { return std::set<std::uint64_t>{42}; };
  info->Start();
  ASSERT_TRUE(Clock().AwaitParked(0ms));
  EXPECT_EQ(Clock().Pauses().size(), 6u);
  EXPECT_EQ(Gate().Count("CWinWork::GetRunningProcessIds"), 6u) << "one at the start, and one after every yield";
  info->StopRefresh();
}

TEST_F(RefreshThread, AStopTakesEffectAfterThePauseAndTheRefresh) {
  const auto info = Started();
  info->GetProcessInfo(42);
  Forget();
  info->StopRefresh();
  EXPECT_TRUE(Gate().Entries().empty()) << "the stop does not wait";
  EXPECT_FALSE(IsFilled(*info)) << "but filling ends at once";
  Forget();
  Clock().Advance(250ms);
  ASSERT_TRUE(Gate().AwaitCount(kExitLine, 1));
  EXPECT_EQ(Gate().Entries(), (Lines{"CWinWork::GetRunningProcessIds(0)", kExitLine}));
  EXPECT_EQ(Clock().Parked(250ms), 0u);
}

TEST_F(RefreshThread, TheThreadKeepsItsObjectAliveUntilItEnds) {
  auto info = Started();
  const std::weak_ptr<CAutoRefreshProcessInfo> weak = info;
  info->StopRefresh();
  info.reset();
  EXPECT_FALSE(weak.expired());
  Clock().Advance(250ms);
  ASSERT_TRUE(Gate().AwaitCount(kExitLine, 1));
  EXPECT_TRUE(RepeatUntil([&] { return weak.expired(); }, [] {}));
}

TEST_F(RefreshThread, ASecondThreadEndsSilently) {
  const auto info = Started();
  Forget();
  info->Start();
  // Run the thread function here, where its return is visible: a refresh thread is already running.
  info->RefreshThreadMain();
  EXPECT_EQ(Gate().Count("CUtility::WriteLog"), 0u);
  Clock().Advance(250ms);
  ASSERT_TRUE(Clock().AwaitPauses(250ms, 2));
  ASSERT_TRUE(Clock().AwaitParked(250ms));
  EXPECT_EQ(Clock().Parked(250ms), 1u);
  EXPECT_EQ(Gate().Count("CUtility::WriteLog"), 0u);
  info->StopRefresh();
}

TEST_F(RefreshThread, AStartAfterAStopServesLookupsWithoutAThread) {
  const auto info = Started();
  info->StopRefresh();
  Clock().Advance(250ms);
  ASSERT_TRUE(Gate().AwaitCount(kExitLine, 1));
  // After that line the thread releases its slot and, last of all, its handle to the object.
  ASSERT_TRUE(RepeatUntil([&] { return info.use_count() == 1; }, [] {}));
  Forget();
  info->Start();
  ASSERT_TRUE(Gate().AwaitCount(kExitLine, 1));
  EXPECT_EQ(Gate().EntriesOf({"CUtility::WriteLog"}), (Lines{kStartLine, kExitLine}));
  EXPECT_TRUE(IsFilled(*info));
  EXPECT_EQ(Clock().Parked(250ms), 0u);
}

TEST_F(RefreshThread, AThreadStoppedBeforeItsFirstLoopOnlyLogsItsStartAndEnd) {
  const auto info = Created();
  info->StopRefresh();
  info->RefreshThreadMain();
  EXPECT_EQ(Gate().Entries(), (Lines{kStartLine, kExitLine}));
  EXPECT_TRUE(Clock().Pauses().empty());
}

TEST_F(RefreshThread, AFailingRefreshDoesNotEndTheThread) {
  const auto info = Started();
  info->GetProcessInfo(42);
  std::size_t passes = 1;
  for (const Failure failure : kAllFailures) {
    Gate().FailAt("CWinWork::GetRunningProcessIds", 1, failure);
    Clock().Advance(250ms);
    ASSERT_TRUE(Clock().AwaitPauses(250ms, ++passes));
    ASSERT_TRUE(Clock().AwaitParked(250ms));
    EXPECT_EQ(Gate().FailedOperation(), "CWinWork::GetRunningProcessIds");
  }
  EXPECT_EQ(Gate().Count("CWinWork::GetRunningProcessIds"), std::size(kAllFailures));
  info->StopRefresh();
}

TEST_F(RefreshThread, AFailingIntervalQueryKeepsTheLastGoodInterval) {
  const auto info = Started();
  for (const Failure failure : kAllFailures) {
    Settings().refreshInterval = 900;
    Gate().FailAt("CCfgEx::GetRefreshInterval", 1, failure);
    const std::size_t before = Clock().Pauses().size();
    Clock().Advance(250ms);
    ASSERT_TRUE(Clock().AwaitPauses(250ms, before + 1)) << "not the interval that could not be read";
    ASSERT_TRUE(Clock().AwaitParked(250ms));
  }
  info->StopRefresh();
}

TEST_F(RefreshThread, TheIntervalIsOneSecondUntilItCanBeRead) {
  Gate().FailAlways("CCfgEx::GetRefreshInterval", Failure::kInt);
  const auto info = Created();
  info->Start();
  ASSERT_TRUE(Clock().AwaitParked(1s));
  Gate().StopFailing();
  Clock().Advance(1s);
  ASSERT_TRUE(Clock().AwaitParked(250ms));
  info->StopRefresh();
}

TEST_F(RefreshThread, AFailingLogLineDoesNotEndTheThread) {
  Gate().FailAlways("CUtility::WriteLog", Failure::kStandard);
  const auto info = Started();
  info->StopRefresh();
  Clock().Advance(250ms);
  ASSERT_TRUE(Gate().AwaitCount(kExitLine, 1));
}

TEST_F(RefreshThread, WithoutAUtilityServiceItRunsWithoutLogging) {
  Gate().GiveEmpty("CGlobalContext::GetUtility");
  const auto info = Started();
  EXPECT_EQ(Gate().Count("CUtility::"), 0u);
  info->StopRefresh();
}

TEST_F(RefreshThread, AFailedFirstRefreshPropagatesAndStartsNoThread) {
  const auto info = Created();
  info->RefreshAll();
  info->GetProcessInfo(42);
  Forget();
  for (const Failure failure : kAllFailures) {
    Gate().FailAt("CWinWork::GetRunningProcessIds", 1, failure);
    EXPECT_TRUE(Propagates(failure, [&] { info->Start(); }));
  }
  EXPECT_FALSE(IsFilled(*info)) << "not started";
  EXPECT_EQ(Gate().Count("CUtility::WriteLog"), 0u);
}

TEST_F(RefreshThread, AFailureToStartTheThreadPropagates) {
  if (!NoThreads::Possible()) GTEST_SKIP() << "cannot make thread creation fail on this system";
  const auto info = Created();
  info->RefreshAll();
  info->GetProcessInfo(42);
  Forget();
  {
    const NoThreads none;
    EXPECT_THROW(info->Start(), std::system_error);
  }
  EXPECT_FALSE(IsFilled(*info)) << "not started";
  EXPECT_EQ(Gate().Count("CUtility::WriteLog"), 0u);
}

TEST_F(RefreshThread, ADriverInterfaceStopsItsThread) {
  const auto interact = ReadyInteract();
  interact->StopInteract();
  Clock().Advance(250ms);
  ASSERT_TRUE(Gate().AwaitCount(kExitLine, 1));
}

}  // namespace fenlux::testing
