// Allocation failures in init, construction, the connection run, the refresh and the operations of a driver interface.
#include <functional>

#include "tests/unit/module/allocation_failures.h"

namespace fenlux::testing {
namespace {

class AllocationFailures : public ModuleTest {
 protected:
  AllocationFailures() { host.SetDriverConfigBlock(host.MakeBuffer(Bytes(10))); }

  // Whether the interface judges a notification.
  static void ExpectJudges(CWinDriverInteract& interact) {
    const Bytes message = NotificationBuilder(4098).Item1(u"/p").Build();
    const auto reply = interact.DispatchNotification(message.data(), static_cast<std::uint32_t>(message.size()));
    ASSERT_TRUE(reply);
    EXPECT_EQ(BytesOf(reply).at(12), 2u);
  }
};

std::shared_ptr<NetControlItems> TwoItems() { return std::make_shared<NetControlItems>(2); }

struct Operation {
  const char* name;
  std::function<void(CWinDriverInteract&)> run;
  bool throws = true;  // whether a failure may reach the caller
};

const Operation kOperations[] = {
    {"AddMonitorObject", [](CWinDriverInteract& i) { i.AddMonitorObject(false, "/a/path/of/some/length", 1); }},
    {"SendMonitorObjects",
     [](CWinDriverInteract& i) {
       i.AddMonitorObject(false, "/no/such/a", 1);
       i.AddMonitorObject(false, "//host/b", 1);
       i.SendMonitorObjects(1);
     }},
    {"ClearMonitorObjects", [](CWinDriverInteract& i) { i.ClearMonitorObjects(3); }},
    {"EnterNetControlMode1", [](CWinDriverInteract& i) { i.EnterNetControlMode1(); }},
    {"ApplyNetControlItems", [](CWinDriverInteract& i) { i.ApplyNetControlItems(true, TwoItems()); }},
    {"EnterNetControlMode3", [](CWinDriverInteract& i) { i.EnterNetControlMode3(); }},
    {"AddNetControlItems", [](CWinDriverInteract& i) { i.AddNetControlItems(2, TwoItems()); }},
    {"GetDriverVersion", [](CWinDriverInteract& i) { i.GetDriverVersion(); }, false},
    {"SetGrspSwitch", [](CWinDriverInteract& i) { i.SetGrspSwitch(true, 3); }},
    {"DumpDriverDebugInfo", [](CWinDriverInteract& i) { i.DumpDriverDebugInfo(); }},
    {"SetGrpmSwitch", [](CWinDriverInteract& i) { i.SetGrpmSwitch(true, 3); }},
    {"SetGrdtoValue", [](CWinDriverInteract& i) { i.SetGrdtoValue(true, 3); }},
    {"SetGrharaSwitch", [](CWinDriverInteract& i) { i.SetGrharaSwitch(true, false); }},
    {"SetSpspState", [](CWinDriverInteract& i) { i.SetSpspState(0); }, false},
    {"RegisterSystemProcess", [](CWinDriverInteract& i) { i.RegisterSystemProcess(2, 4); }, false},
    {"SendDriverConfig", [](CWinDriverInteract& i) { i.SendDriverConfig(); }},
    {"CheckDriverVersion", [](CWinDriverInteract& i) { i.CheckDriverVersion(); }},
    {"FindSystemProcessId", [](CWinDriverInteract& i) { i.FindSystemProcessId("system32\\csrss.exe"); }},
};

class AllocationFailuresOperations : public AllocationFailures, public ::testing::WithParamInterface<Operation> {};

}  // namespace

TEST_F(AllocationFailures, InitCompletesOrThrowsAndCanBeRepeated) {
  FailEveryAllocation("init", [&](std::size_t n) {
    CFenluxImpl::Release();
    const Attempt attempt = WithFailure(n, [&] { init(&host.Context()); });
    EXPECT_EQ(attempt.other, "");
    CFenluxImpl::Release();
    init(&host.Context());
    EXPECT_TRUE(host.Module());
    return attempt.failed;
  });
  CFenluxImpl::Release();
}

TEST_F(AllocationFailures, ConstructionCompletesOrThrowsAndLeaksNothing) {
  const auto holders = host.Core().use_count();
  FailEveryAllocation("construction of a driver interface", [&](std::size_t n) {
    const Attempt attempt = WithFailure(n, [&] { std::make_shared<CWinDriverInteract>(host.Context()); });
    EXPECT_EQ(attempt.other, "");
    EXPECT_EQ(host.Core().use_count(), holders);
    return attempt.failed;
  });
}

TEST_F(AllocationFailures, AConnectionIsServedOrEndsAndTheNextOneIsComplete) {
  FailEveryAllocation("opening of a connection", [&](std::size_t n) {
    auto interact = std::make_shared<CWinDriverInteract>(host.Context());
    const Attempt attempt = WithFailure(n, [&] { interact->RunDriverConnection(); });
    EXPECT_EQ(attempt.other, "");
    if (interact->IsDriverReady()) ExpectJudges(*interact);
    EXPECT_NO_THROW(interact->Shutdown());
    interact = std::make_shared<CWinDriverInteract>(host.Context());
    EXPECT_NO_THROW(interact->RunDriverConnection());
    ExpectJudges(*interact);
    Clock().Advance(24h);  // ends the refresh threads
    return attempt.failed;
  });
}

TEST_F(AllocationFailures, AShutdownCompletesOrCanBeRepeated) {
  FailEveryAllocation("shutdown of a driver interface", [&](std::size_t n) {
    const auto interact = std::make_shared<CWinDriverInteract>(host.Context());
    interact->RunDriverConnection();
    const Attempt attempt = WithFailure(n, [&] { interact->Shutdown(); });
    EXPECT_EQ(attempt.other, "");
    EXPECT_TRUE(interact->IsStopRequested());
    EXPECT_NO_THROW(interact->Shutdown());
    EXPECT_TRUE(host.PortClient()->IsClosed());
    Clock().Advance(24h);
    return attempt.failed;
  });
}

TEST_F(AllocationFailures, AFailedRefreshKeepsTheCache) {
  Settings().running = [] { return std::set<std::uint64_t>{1, 2, 3}; };
  const auto info = std::make_shared<CAutoRefreshProcessInfo>(host.Context());
  info->RefreshAll();
  FailEveryAllocation("refresh of the process cache", [&](std::size_t n) {
    for (const std::uint32_t id : {1u, 2u}) info->GetProcessInfo(id);
    const auto last = info->GetProcessInfo(3);
    const Attempt attempt = WithFailure(n, [&] { info->RefreshAll(); });
    EXPECT_EQ(attempt.other, "");
    EXPECT_EQ(info->GetProcessInfo(3) == last, attempt.threw);
    return attempt.failed;
  });
  FailEveryAllocation("lookup in the process cache", [&](std::size_t n) {
    const auto fresh = std::make_shared<CAutoRefreshProcessInfo>(host.Context());
    fresh->RefreshAll();
    const Attempt attempt = WithFailure(n, [&] { fresh->GetProcessInfo(1); });
    EXPECT_EQ(attempt.other, "");
    EXPECT_TRUE(fresh->GetProcessInfo(1));
    return attempt.failed;
  });
}

TEST_F(AllocationFailures, ACacheThatCannotGrowKeepsItsRecords) {
  const auto info = std::make_shared<CAutoRefreshProcessInfo>(host.Context());
  info->RefreshAll();
  Gate().SetJournal(false);
  const auto first = info->GetProcessInfo(1);
  const std::size_t usual = AllocationsOf([&] { info->GetProcessInfo(2); });
  int failures = 0;
  for (std::uint32_t process = 3; process <= 3000; ++process) {
    const Attempt attempt = WithFailure(usual + 1, [&] { info->GetProcessInfo(process); });  // that of the larger map
    EXPECT_EQ(attempt.threw, attempt.failed);
    failures += attempt.failed ? 1 : 0;
    EXPECT_TRUE(info->GetProcessInfo(process));
  }
  EXPECT_GT(failures, 0) << "the cache did not grow";
  EXPECT_EQ(info->GetProcessInfo(1), first);
}

TEST_P(AllocationFailuresOperations, CompleteOrThrowAndTheInterfaceKeepsWorking) {
  const auto interact = ReadyInteract();
  FailEveryAllocation(GetParam().name, [&](std::size_t n) {
    interact->ClearMonitorObjects(1);
    const Attempt attempt = WithFailure(n, [&] { GetParam().run(*interact); });
    EXPECT_EQ(attempt.other, "");
    EXPECT_TRUE(!attempt.threw || GetParam().throws);
    // No lock is left held, and the failed operation leaves nothing behind that prevents the next one.
    interact->RegisterSystemProcess(2, 4);
    EXPECT_TRUE(interact->AddMonitorObject(false, "/a", 1));
    interact->SendMonitorObjects(1);
    ExpectJudges(*interact);
    host.ClearRequests();
    return attempt.failed;
  });
}

INSTANTIATE_TEST_SUITE_P(Operations, AllocationFailuresOperations, ::testing::ValuesIn(kOperations),
                         [](const auto& instance) { return instance.param.name; });

}  // namespace fenlux::testing
