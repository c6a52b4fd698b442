// The process cache: lookups, the record fields they fill, and refreshes.
#include "procinfo/auto_refresh_process_info.h"

#include "tests/support/turnstile.h"
#include "tests/unit/module/module_test.h"

namespace fenlux::testing {
namespace {

class ProcessInfo : public ModuleTest {
 protected:
  std::shared_ptr<CAutoRefreshProcessInfo> Created() {
    auto info = std::make_shared<CAutoRefreshProcessInfo>(host.Context());
    Forget();
    return info;
  }

  // With an empty map published and without a refresh thread.
  std::shared_ptr<CAutoRefreshProcessInfo> WithMap() {
    auto info = Created();
    info->RefreshAll();
    Forget();
    return info;
  }

  std::shared_ptr<CAutoRefreshProcessInfo> Started() {
    auto info = Created();
    info->Start();
    Settle();
    return info;
  }

  static Lines Queries(std::uint32_t id) {
    const std::string number = std::to_string(id);
    return {"CWinWork::QueryProcessValue(" + number + ", 0)", "CWinWork::GetProcessNarrowText(" + number + ", 0)",
            "CWinWork::GetProcessWideText(" + number + ", 0)"};
  }
  // The calls of a lookup that misses the cache; the setting is queried first.
  static Lines Miss(std::uint32_t id) {
    Lines calls = Queries(id);
    calls.insert(calls.begin(), "CCfgEx::IsCacheBypassed()");
    return calls;
  }
  static Lines Hit() { return {"CCfgEx::IsCacheBypassed()"}; }

  void MakeUnknown(std::uint32_t unknown) {
    Settings().processValue = [unknown](std::uint32_t id) { return id == unknown ? 0xFFFFFFFF : 1; };
  }

  // A record and its process part, to be filled.
  struct Filled {
    std::shared_ptr<CArpRecord> record;
    std::shared_ptr<CArpProcess> process;
  };
  Filled NewRecord(std::uint64_t processId) {
    Filled filled;
    host.ArpMgmt()->CreateRecord(filled.record, 0);
    filled.process = filled.record->ProcessPart();
    filled.process->SetProcessId(processId);
    Forget();
    return filled;
  }
};

}  // namespace

// ---------------------------------------------------------------- construction

TEST_F(ProcessInfo, RequestsItsServicesInOrder) {
  const CAutoRefreshProcessInfo info(host.Context());
  EXPECT_EQ(Gate().Entries(),
            (Lines{"CGlobalContext::GetUtility()", "CGlobalContext::GetWinWork()", "CGlobalContext::GetCfgEx()"}));
}

TEST_F(ProcessInfo, RequiresOnlyTheExtendedConfiguration) {
  Gate().GiveEmpty("CGlobalContext::GetUtility");
  Gate().GiveEmpty("CGlobalContext::GetWinWork");
  EXPECT_NO_THROW(CAutoRefreshProcessInfo{host.Context()});
  Gate().GiveEmpty("CGlobalContext::GetCfgEx");
  EXPECT_EQ(RuntimeErrorOf([&] { CAutoRefreshProcessInfo{host.Context()}; }), "[arpi] Bad cfgex init!");
}

// ---------------------------------------------------------------- building a record

TEST_F(ProcessInfo, ARecordHoldsTheThreeQueryResults) {
  const auto info = Created();
  Settings().processValue = [](std::uint32_t) { return 3; };
  const auto record = info->BuildRecord(42);
  ASSERT_TRUE(record);
  EXPECT_EQ(Gate().Entries(), Queries(42));
  EXPECT_EQ(record->sessionId, 3u);
  EXPECT_EQ(record->narrowInfo, "narrow-42");
  EXPECT_EQ(record->wideInfo, L"wide-42");
}

TEST_F(ProcessInfo, AnUnknownProcessIsNotQueriedFurther) {
  const auto info = Created();
  MakeUnknown(42);
  EXPECT_FALSE(info->BuildRecord(42));
  EXPECT_EQ(Gate().Entries(), Lines{"CWinWork::QueryProcessValue(42, 0)"});
}

TEST_F(ProcessInfo, ANewRecordIsUnknown) {
  const CSingleProcessInfo record;
  EXPECT_EQ(record.sessionId, 0xFFFFFFFFu);
  EXPECT_TRUE(record.narrowInfo.empty());
  EXPECT_TRUE(record.wideInfo.empty());
}

TEST_F(ProcessInfo, WithoutAWinWorkServiceALookupThrows) {
  Gate().GiveEmpty("CGlobalContext::GetWinWork");
  const auto info = Created();
  EXPECT_FALSE(RuntimeErrorOf([&] { info->BuildRecord(1); }).empty());
  EXPECT_NO_THROW(info->RefreshAll()) << "an empty cache does not query the work service";
}

// ---------------------------------------------------------------- lookups

TEST_F(ProcessInfo, ASecondLookupIsServedFromTheCache) {
  const auto info = WithMap();
  const auto first = info->GetProcessInfo(42);
  EXPECT_EQ(Gate().Entries(), Miss(42));
  Forget();
  EXPECT_EQ(info->GetProcessInfo(42), first);
  EXPECT_EQ(Gate().Entries(), Hit());
}

TEST_F(ProcessInfo, AnUnknownProcessIsQueriedAgain) {
  const auto info = WithMap();
  MakeUnknown(42);
  for (int i = 0; i < 2; ++i) {
    Forget();
    EXPECT_FALSE(info->GetProcessInfo(42));
    EXPECT_EQ(Gate().Entries(), (Lines{"CCfgEx::IsCacheBypassed()", "CWinWork::QueryProcessValue(42, 0)"}));
  }
}

TEST_F(ProcessInfo, ABypassedCacheIsNeitherReadNorFilled) {
  const auto info = WithMap();
  const auto cached = info->GetProcessInfo(1);
  Settings().cacheBypassed = true;
  for (int i = 0; i < 2; ++i) {
    Forget();
    EXPECT_NE(info->GetProcessInfo(1), cached);
    EXPECT_TRUE(info->GetProcessInfo(2));
    Lines expected = Miss(1);
    const Lines second = Miss(2);
    expected.insert(expected.end(), second.begin(), second.end());
    EXPECT_EQ(Gate().Entries(), expected);
  }
  Settings().cacheBypassed = false;
  Forget();
  EXPECT_EQ(info->GetProcessInfo(1), cached);
  EXPECT_EQ(Gate().Entries(), Hit());
  Forget();
  info->GetProcessInfo(2);
  EXPECT_EQ(Gate().Entries(), Miss(2));
}

TEST_F(ProcessInfo, FetchingKeepsAnExistingEntry) {
  const auto info = WithMap();
  const auto first = info->FetchAndCache(42);
  const auto second = info->FetchAndCache(42);
  EXPECT_NE(first, second) << "each caller gets the record it built";
  EXPECT_EQ(info->GetProcessInfo(42), first);
}

TEST_F(ProcessInfo, ConcurrentMissesOfOneIdGetTheirOwnRecordsAndTheMapKeepsTheFirst) {
  const auto info = WithMap();
  Turnstile both;
  std::atomic<int> inside{0};
  Gate().OnCall("CWinWork::QueryProcessValue", [&] {
    ++inside;
    both.Pass();
  });
  std::shared_ptr<const CSingleProcessInfo> found[2];
  std::thread threads[2];
  for (int i = 0; i < 2; ++i) threads[i] = std::thread([&, i] { found[i] = info->GetProcessInfo(42); });
  ASSERT_TRUE(both.AwaitArrivals(2));
  both.Open();
  for (std::thread& thread : threads) thread.join();
  Gate().RemoveHook("CWinWork::QueryProcessValue");
  EXPECT_EQ(inside, 2);
  ASSERT_TRUE(found[0] && found[1]);
  EXPECT_NE(found[0], found[1]);
  const auto kept = info->GetProcessInfo(42);
  EXPECT_TRUE(kept == found[0] || kept == found[1]);
}

TEST_F(ProcessInfo, ALookupBeforeTheFirstRefreshStoresNothing) {
  const auto info = Created();
  EXPECT_TRUE(info->GetProcessInfo(42));
  Forget();
  EXPECT_TRUE(info->GetProcessInfo(42));
  EXPECT_EQ(Gate().Entries(), Miss(42));
}

TEST_F(ProcessInfo, AFailedQueryPropagatesAndStoresNothing) {
  const auto info = WithMap();
  for (const Failure failure : kAllFailures) {
    for (const char* operation : {"CWinWork::QueryProcessValue", "CWinWork::GetProcessNarrowText",
                                  "CWinWork::GetProcessWideText", "CCfgEx::IsCacheBypassed"}) {
      Gate().FailAt(operation, 1, failure);
      EXPECT_TRUE(Propagates(failure, [&] { info->GetProcessInfo(42); })) << operation;
    }
  }
  Forget();
  info->GetProcessInfo(42);
  EXPECT_EQ(Gate().Entries(), Miss(42));
}

// ---------------------------------------------------------------- refreshing

TEST_F(ProcessInfo, RefreshingAnEmptyCacheMakesNoHostCall) {
  const auto info = Created();
  info->RefreshAll();
  EXPECT_TRUE(Gate().Entries().empty());
  info->RefreshAll();
  EXPECT_TRUE(Gate().Entries().empty());
  info->GetProcessInfo(42);
  Forget();
  info->GetProcessInfo(42);
  EXPECT_EQ(Gate().Entries(), Hit()) << "a map was published";
}

TEST_F(ProcessInfo, ARefreshRebuildsLiveRecordsInAscendingOrderAndDropsTheOthers) {
  const auto info = WithMap();
  for (const std::uint32_t id : {30u, 10u, 20u, 40u}) info->GetProcessInfo(id);
  const auto before = info->GetProcessInfo(10);
  Settings().running = [] { return std::set<std::uint64_t>{10, 20, 40, 50}; };
  Settings().processValue = [](std::uint32_t id) { return id == 20 ? 0xFFFFFFFF : id + 1; };
  Forget();
  info->RefreshAll();
  EXPECT_EQ(Gate().Entries(), (Lines{"CWinWork::GetRunningProcessIds(0)", "CWinWork::QueryProcessValue(10, 0)",
                                     "CWinWork::GetProcessNarrowText(10, 0)", "CWinWork::GetProcessWideText(10, 0)",
                                     "CWinWork::QueryProcessValue(20, 0)", "CWinWork::QueryProcessValue(40, 0)",
                                     "CWinWork::GetProcessNarrowText(40, 0)", "CWinWork::GetProcessWideText(40, 0)"}));

  Forget();
  const auto after = info->GetProcessInfo(10);
  EXPECT_EQ(Gate().Entries(), Hit());
  EXPECT_NE(after, before);
  EXPECT_EQ(after->sessionId, 11u) << "queried again";
  EXPECT_EQ(before->sessionId, 0u) << "a published record never changes";
  Forget();
  info->GetProcessInfo(30);
  EXPECT_EQ(Gate().Entries(), Miss(30)) << "no longer running";
  Forget();
  EXPECT_FALSE(info->GetProcessInfo(20)) << "the host no longer knows it";
  Forget();
  info->GetProcessInfo(50);
  EXPECT_EQ(Gate().Entries(), Miss(50)) << "a refresh adds no records";
}

TEST_F(ProcessInfo, IdsAreZeroExtendedForTheRunningList) {
  const auto info = WithMap();
  info->GetProcessInfo(0xFFFFFFF0);
  Settings().running = [] { return std::set<std::uint64_t>{0x00000001FFFFFFF0}; };
  info->RefreshAll();
  Forget();
  info->GetProcessInfo(0xFFFFFFF0);
  EXPECT_EQ(Gate().Entries(), Miss(0xFFFFFFF0)) << "another process with the same low half";
}

TEST_F(ProcessInfo, AnEmptyRunningHandleCountsAsAnEmptySet) {
  const auto info = WithMap();
  info->GetProcessInfo(42);
  Gate().GiveEmpty("CWinWork::GetRunningProcessIds");
  info->RefreshAll();
  Forget();
  info->GetProcessInfo(42);
  EXPECT_EQ(Gate().Entries(), Miss(42));
}

TEST_F(ProcessInfo, AFailedRefreshKeepsTheCache) {
  const auto info = WithMap();
  const auto record = info->GetProcessInfo(42);
  Settings().running = [] { return std::set<std::uint64_t>{42}; };
  for (const Failure failure : kAllFailures) {
    for (const char* operation : {"CWinWork::GetRunningProcessIds", "CWinWork::QueryProcessValue"}) {
      Gate().FailAt(operation, 1, failure);
      EXPECT_TRUE(Propagates(failure, [&] { info->RefreshAll(); })) << operation;
      EXPECT_EQ(info->GetProcessInfo(42), record);
    }
  }
}

TEST_F(ProcessInfo, AnEntryInsertedDuringARefreshIsDroppedAndFetchedAgain) {
  const auto info = WithMap();
  info->GetProcessInfo(1);
  Settings().running = [] { return std::set<std::uint64_t>{1, 2}; };
  bool once = true;
  Gate().OnCall("CWinWork::GetRunningProcessIds", [&] {
    if (std::exchange(once, false)) info->GetProcessInfo(2);
  });
  info->RefreshAll();
  Gate().RemoveHook("CWinWork::GetRunningProcessIds");
  Forget();
  EXPECT_TRUE(info->GetProcessInfo(2));
  EXPECT_EQ(Gate().Entries(), Miss(2));
}

TEST_F(ProcessInfo, NoLockIsHeldDuringHostQueries) {
  // Otherwise a lookup from inside a host query would deadlock.
  const auto info = WithMap();
  info->GetProcessInfo(1);
  Settings().running = [] { return std::set<std::uint64_t>{1}; };
  for (const char* operation : {"CWinWork::GetRunningProcessIds", "CWinWork::GetProcessNarrowText"}) {
    std::atomic<bool> nested{false};
    Gate().OnCall(operation, [&] {
      if (nested.exchange(true)) return;
      std::thread([&] { info->GetProcessInfo(7); }).join();
      std::thread([&] { info->FetchAndCache(8); }).join();
    });
    info->RefreshAll();
    EXPECT_TRUE(nested) << operation;
    Gate().RemoveHook(operation);
  }
}

// ---------------------------------------------------------------- filling a record

TEST_F(ProcessInfo, FillingBeforeTheStartChangesNothing) {
  const auto info = WithMap();
  Settings().identityTextAdded = true;
  const auto to = NewRecord(42);
  const std::uint8_t identity[64] = {};
  info->FillEventProcessInfo(*to.record, *to.process, identity);
  EXPECT_TRUE(Gate().Entries().empty());
}

TEST_F(ProcessInfo, FillingAfterTheStopChangesNothing) {
  const auto info = Started();
  info->StopRefresh();
  const auto to = NewRecord(42);
  info->FillEventProcessInfo(*to.record, *to.process, nullptr);
  EXPECT_TRUE(Gate().Entries().empty());
}

TEST_F(ProcessInfo, FillingSetsSessionNarrowAndWideInThisOrder) {
  const auto info = Started();
  const auto to = NewRecord(42);
  Settings().processValue = [](std::uint32_t) { return 9; };
  info->FillEventProcessInfo(*to.record, *to.process, nullptr);
  EXPECT_EQ(Gate().Entries(),
            (Lines{"CArpProcess::GetProcessId()", "CCfgEx::IsCacheBypassed()", "CWinWork::QueryProcessValue(42, 0)",
                   "CWinWork::GetProcessNarrowText(42, 0)", "CWinWork::GetProcessWideText(42, 0)",
                   "CArpProcess::SetSessionId(9)", "CArpProcess::SetNarrowInfo(narrow-42)",
                   "CArpRecord::SetWideInfo(wide-42)", "CCfgEx::IsIdentityTextAdded()"}));
  info->StopRefresh();
}

TEST_F(ProcessInfo, TheIdIsTruncatedTo32Bits) {
  const auto info = Started();
  const auto to = NewRecord(0x000000010000002A);
  info->FillEventProcessInfo(*to.record, *to.process, nullptr);
  EXPECT_EQ(Gate().Count("CWinWork::QueryProcessValue(42, 0)"), 1u);
  info->StopRefresh();
}

TEST_F(ProcessInfo, AnUnknownProcessSetsNoFieldsButMayGetAnIdentityText) {
  const auto info = Started();
  MakeUnknown(42);
  Settings().identityTextAdded = true;
  const auto to = NewRecord(42);
  const std::uint8_t identity[64] = {};
  info->FillEventProcessInfo(*to.record, *to.process, identity);
  EXPECT_EQ(Gate().EntriesOf({"CArpProcess::Set", "CArpRecord::Set", "CWinWork::GetIdentityText"}),
            (Lines{"CWinWork::GetIdentityText()", "CArpProcess::SetIdentityText(S-1-5-18)"}));
  info->StopRefresh();
}

namespace {
class IdentityText : public ProcessInfo {};
}  // namespace

TEST_F(IdentityText, IsReadFromOffset50OfTheNotification) {
  Settings().identityTextAdded = true;
  const auto interact = ReadyInteract();
  const Bytes message = NotificationBuilder(4098, 42).IdentityPresent(1).Build();
  ASSERT_TRUE(interact->DispatchNotification(message.data(), static_cast<std::uint32_t>(message.size())));
  ASSERT_EQ(host.Identities().size(), 1u);
  EXPECT_EQ(host.Identities()[0], message.data() + 50);
  EXPECT_EQ(Gate().Count("CArpProcess::SetIdentityText(S-1-5-18)"), 1u);
}

TEST_F(IdentityText, IsSetIfAnyBitOfItsFieldIsSet) {
  Settings().identityTextAdded = true;
  const auto interact = ReadyInteract();
  for (const std::uint32_t value : {1u, 0x100u, 0x10000u, 0x80000000u}) {
    Forget();
    const Bytes message = NotificationBuilder(4098, 42).IdentityPresent(value).Build();
    interact->DispatchNotification(message.data(), static_cast<std::uint32_t>(message.size()));
    EXPECT_EQ(Gate().Count("CArpProcess::SetIdentityText"), 1u) << value;
  }
}

TEST_F(IdentityText, IsNotSetIfTheFieldIs0) {
  Settings().identityTextAdded = true;
  const auto interact = ReadyInteract();
  const Bytes message = NotificationBuilder(4098, 42).IdentityPresent(0).Build();
  interact->DispatchNotification(message.data(), static_cast<std::uint32_t>(message.size()));
  EXPECT_EQ(Gate().Count("CWinWork::GetIdentityText"), 0u);
}

TEST_F(IdentityText, IsNotSetIfTheSettingIsOff) {
  const auto interact = ReadyInteract();
  const Bytes message = NotificationBuilder(4098, 42).IdentityPresent(1).Build();
  interact->DispatchNotification(message.data(), static_cast<std::uint32_t>(message.size()));
  EXPECT_EQ(Gate().Count("CWinWork::GetIdentityText"), 0u);
}

TEST_F(ProcessInfo, ADispatchFillsTheRecordBetweenTheIdAndThePaths) {
  const auto interact = ReadyInteract();
  const Bytes message = NotificationBuilder(4098, 42).Item1(u"/p").Build();
  interact->DispatchNotification(message.data(), static_cast<std::uint32_t>(message.size()));
  const Lines calls = Gate().EntriesOf({"CArpProcess::", "CArpRecord::"});
  EXPECT_EQ(calls,
            (Lines{"CArpRecord::SetSource(1)", "CArpRecord::SetCategory(1)", "CArpRecord::ProcessPart()",
                   "CArpProcess::SetProcessId(42)", "CArpProcess::GetProcessId()", "CArpProcess::SetSessionId(0)",
                   "CArpProcess::SetNarrowInfo(narrow-42)", "CArpRecord::SetWideInfo(wide-42)",
                   "CArpRecord::SetPath(/p)", "CArpRecord::SetPath(/p)", "CArpRecord::SetEventType(0x4005)"}));
}

TEST_F(ProcessInfo, AFailureWhileFillingFailsTheNotification) {
  const auto interact = ReadyInteract();
  const Bytes message = NotificationBuilder(4098, 42).Build();
  Gate().FailAt("CWinWork::GetProcessNarrowText", 1, Failure::kStandard);
  const auto reply = interact->DispatchNotification(message.data(), static_cast<std::uint32_t>(message.size()));
  ASSERT_TRUE(reply);
  EXPECT_EQ(BytesOf(reply).at(12), 8);
  EXPECT_EQ(Logged(), Lines{Problem("[wdi,wdaokd,STDE] info=standard failure")});
}

}  // namespace fenlux::testing
