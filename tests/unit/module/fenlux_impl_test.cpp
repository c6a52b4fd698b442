// The module's object: init, construction, translation, and the host's five operations.
#include "tests/support/no_threads.h"
#include "tests/support/turnstile.h"
#include "tests/unit/module/worker_test.h"

namespace fenlux::testing {
namespace {

class FenluxImpl : public ModuleTest {
 protected:
  std::shared_ptr<CFenluxImpl> New() {
    auto impl = std::make_shared<CFenluxImpl>(host.Context());
    Forget();
    return impl;
  }
};

// Tests of init release the process-wide instance at their end.
class Init : public FenluxImpl {
 protected:
  Init() { CFenluxImpl::Release(); }
  ~Init() override { CFenluxImpl::Release(); }
};

struct MissingService {
  const char* getter;
  const char* message;
};
class MissingModuleService : public FenluxImpl, public ::testing::WithParamInterface<MissingService> {};

const Lines kConstruction{"CGlobalContext::GetUtility()", "CGlobalContext::GetCfg()", "CGlobalContext::GetLog()",
                          "CGlobalContext::GetCfgEx()", "CCfgEx::GetMonitorObjectFlag()"};

}  // namespace

// ---------------------------------------------------------------- construction

TEST_F(FenluxImpl, RequestsItsServicesInOrder) {
  const CFenluxImpl impl(host.Context());
  EXPECT_EQ(Gate().Entries(), kConstruction);
}

TEST_F(FenluxImpl, AnEmptyContextIsABadGlobalClass) {
  EXPECT_EQ(RuntimeErrorOf([] { CFenluxImpl impl(nullptr); }), "[cl]Bad global class!");
}

TEST_P(MissingModuleService, FailsConstructionWithItsOwnMessage) {
  Gate().GiveEmpty(GetParam().getter);
  EXPECT_EQ(RuntimeErrorOf([&] { CFenluxImpl impl(host.Context()); }), GetParam().message);
  EXPECT_EQ(Gate().Entries().back(), std::string(GetParam().getter) + "()") << "nothing is requested afterwards";
}

INSTANTIATE_TEST_SUITE_P(Services, MissingModuleService,
                         ::testing::Values(MissingService{"CGlobalContext::GetUtility", "bad utility init!"},
                                           MissingService{"CGlobalContext::GetCfg", "bad cfg init!"},
                                           MissingService{"CGlobalContext::GetLog", "bad log init!"},
                                           MissingService{"CGlobalContext::GetCfgEx", "bad cfgex init!"}),
                         [](const auto& instance) { return std::string(instance.param.getter).substr(16); });

// ---------------------------------------------------------------- init

TEST_F(Init, CreatesTheModuleAndRegistersIt) {
  init(&host.Context());
  Lines expected = kConstruction;
  expected.push_back("CGlobalContext::RegisterModule(module)");
  EXPECT_EQ(Gate().Entries(), expected);
  EXPECT_EQ(host.Module(), CFenluxImpl::Instance());
}

TEST_F(Init, ASecondCallDoesNothing) {
  init(&host.Context());
  const auto first = CFenluxImpl::Instance();
  Forget();
  init(&host.Context());
  FakeHost other;
  init(&other.Context());
  init(nullptr);
  EXPECT_TRUE(Gate().Entries().empty());
  EXPECT_TRUE(other.Gate().Entries().empty());
  EXPECT_EQ(CFenluxImpl::Instance(), first);
}

TEST_F(Init, AnEmptyHandleFails) {
  const std::shared_ptr<CGlobalContext> empty;
  EXPECT_EQ(RuntimeErrorOf([&] { init(&empty); }), "[cl]Bad global class!");
  EXPECT_FALSE(CFenluxImpl::Instance());
}

TEST_F(Init, ANullPointerBehavesAsAnEmptyHandle) {
  EXPECT_EQ(RuntimeErrorOf([] { init(nullptr); }), "[cl]Bad global class!");
}

TEST_F(Init, AMissingServiceFailsAndALaterCallMaySucceed) {
  Gate().GiveEmptyAt("CGlobalContext::GetLog", 1);
  EXPECT_EQ(RuntimeErrorOf([&] { init(&host.Context()); }), "bad log init!");
  EXPECT_FALSE(CFenluxImpl::Instance());
  EXPECT_EQ(Gate().Count("CGlobalContext::RegisterModule"), 0u);
  init(&host.Context());
  EXPECT_TRUE(CFenluxImpl::Instance());
}

TEST_F(Init, HoldsNoLockAcrossTheRegistration) {
  bool reached = false;
  Gate().OnCall("CGlobalContext::RegisterModule", [&] {
    // The instance is already published, and neither this thread nor another one blocks on it.
    init(&host.Context());
    std::thread([&] { init(&host.Context()); }).join();
    reached = CFenluxImpl::Instance() != nullptr;
    host.Module()->StopWork(true);
    EXPECT_FALSE(host.Module()->GetDriverInteract());
  });
  init(&host.Context());
  EXPECT_TRUE(reached);
  EXPECT_EQ(Gate().Count("CGlobalContext::RegisterModule"), 1u);
}

TEST_F(Init, KeepsTheModuleAlive) {
  init(&host.Context());
  const std::weak_ptr<CFenluxImpl> weak = CFenluxImpl::Instance();
  EXPECT_FALSE(weak.expired());
  CFenluxImpl::Release();
  EXPECT_TRUE(weak.expired()) << "released on purpose, the destructor runs";
}

TEST_F(Init, AFailedRegistrationPropagatesAndTheModuleStays) {
  for (const Failure failure : kAllFailures) {
    CFenluxImpl::Release();
    Gate().FailAt("CGlobalContext::RegisterModule", 1, failure);
    EXPECT_TRUE(Propagates(failure, [&] { init(&host.Context()); }));
    EXPECT_TRUE(CFenluxImpl::Instance());
  }
  Forget();
  init(&host.Context());
  EXPECT_TRUE(Gate().Entries().empty()) << "a later call does nothing";
}

TEST_F(Init, TwoConcurrentCallsCreateOneModule) {
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) threads.emplace_back([this] { init(&host.Context()); });
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(Gate().Count("CGlobalContext::RegisterModule"), 1u);
}

// ---------------------------------------------------------------- translation

TEST_F(FenluxImpl, PassesTheSameTextTwiceToTheLocaleService) {
  const auto impl = New();
  Settings().translate = [](const std::string& text) { return "<" + text + ">"; };
  EXPECT_EQ(impl->Translate("one"), "<one>");
  EXPECT_EQ(impl->Translate("two"), "<two>");
  EXPECT_EQ(Gate().Entries(), (Lines{"CGlobalContext::GetLocale()", Translation("one"), Translation("two")}));
}

TEST_F(FenluxImpl, WithoutALocaleServiceTextsAreUnchangedAndItIsRequestedAgain) {
  const auto impl = New();
  Settings().translate = [](const std::string& text) { return "<" + text + ">"; };
  Gate().GiveEmpty("CGlobalContext::GetLocale");
  EXPECT_EQ(impl->Translate("one"), "one");
  EXPECT_EQ(impl->Translate("two"), "two");
  Gate().StopGivingEmpty("CGlobalContext::GetLocale");
  EXPECT_EQ(impl->Translate("three"), "<three>");
  EXPECT_EQ(impl->Translate("four"), "<four>");
  EXPECT_EQ(Gate().Count("CGlobalContext::GetLocale"), 3u);
}

TEST_F(FenluxImpl, HoldsNoLockWhileTranslating) {
  const auto impl = New();
  bool nested = false;
  Gate().OnCall("CLocale::TranslateText", [&] {
    if (std::exchange(nested, true)) return;
    std::thread([&] { impl->Translate("inner"); }).join();
  });
  EXPECT_EQ(impl->Translate("outer"), "outer");
  EXPECT_TRUE(nested);
}

TEST_F(FenluxImpl, AFailingLocaleServicePropagates) {
  const auto impl = New();
  for (const Failure failure : kAllFailures) {
    Gate().FailAt("CLocale::TranslateText", 1, failure);
    EXPECT_TRUE(Propagates(failure, [&] { impl->Translate("one"); }));
  }
  Gate().FailAt("CGlobalContext::GetLocale", 1, Failure::kInt);
  const auto other = std::make_shared<CFenluxImpl>(host.Context());
  EXPECT_TRUE(Propagates(Failure::kInt, [&] { other->Translate("one"); }));
  EXPECT_EQ(other->Translate("one"), "one");
}

// ---------------------------------------------------------------- the host's operations

TEST_F(FenluxImpl, BeforeAnyConnectionThereIsNoInterfaceAndNoPortValue) {
  const auto impl = New();
  EXPECT_FALSE(impl->GetDriverInteract());
  EXPECT_FALSE(impl->GetReadyDriverInteract());
  EXPECT_EQ(RuntimeErrorOf([&] { impl->GetDriverPortValue(); }), "DCI,Driver Interact NOT ready.");
  impl->StopWork(false);
  impl->StopWork(true);
  impl->NotifyPolicyChanged();
  EXPECT_TRUE(Gate().Entries().empty());
}

TEST_F(FenluxImpl, ADisabledModuleStartsNothing) {
  const auto impl = New();
  Settings().enabled = false;
  impl->StartWork();
  EXPECT_EQ(Gate().Entries(), Lines{"CCfgEx::IsEnabled()"});
  EXPECT_TRUE(Clock().Pauses().empty());
}

TEST_F(FenluxImpl, AFailureToStartAThreadPropagates) {
  if (!NoThreads::Possible()) GTEST_SKIP() << "cannot make thread creation fail on this system";
  const auto impl = New();
  {
    const NoThreads none;
    EXPECT_THROW(impl->StartWork(), std::system_error);
  }
  EXPECT_EQ(Gate().Entries(), Lines{"CCfgEx::IsEnabled()"}) << "no worker was started";
  EXPECT_TRUE(Clock().Pauses().empty());
}

TEST_F(FenluxImpl, AFailingEnableQueryPropagatesAndStartsNothing) {
  const auto impl = New();
  for (const Failure failure : kAllFailures) {
    Gate().FailAt("CCfgEx::IsEnabled", 1, failure);
    EXPECT_TRUE(Propagates(failure, [&] { impl->StartWork(); }));
  }
  EXPECT_EQ(Gate().Count("CGlobalContext::"), 0u);
}

namespace {
class ConnectedModule : public WorkerTest {
 protected:
  const Lines kShutdown{"CPortClient::Close()", "CRecordRegistration::Withdraw()", "CNetObject::Release(0)"};
  // The calls of the thread that stops the interface, without those of the connection worker, which continues.
  Lines StopperCalls() const {
    return Gate().EntriesOf({"CPortClient::Close", "CPortClient::Send(3", "CRecordReg", "CNetObject"});
  }
};
}  // namespace

TEST_F(ConnectedModule, AReadyInterfaceIsReturned) {
  Settings().portValue = 4242;
  Connect();
  const auto interact = impl->GetDriverInteract();
  ASSERT_TRUE(interact);
  EXPECT_TRUE(interact->IsDriverReady());
  EXPECT_EQ(interact, impl->GetReadyDriverInteract());
  EXPECT_EQ(impl->GetDriverPortValue(), 4242u);
}

TEST_F(ConnectedModule, AStoppedInterfaceIsNotReturned) {
  Connect();
  impl->GetDriverInteract()->StopInteract();
  EXPECT_FALSE(impl->GetDriverInteract());
  EXPECT_EQ(RuntimeErrorOf([&] { impl->GetDriverPortValue(); }), "DCI,Driver Interact NOT ready.");
  EXPECT_TRUE(Clock().AwaitParked(5s));
}

TEST_F(ConnectedModule, StopWorkShutsTheInterfaceDown) {
  Connect();
  // The worker that this wakes shuts down again; hold it until the calls are compared.
  Turnstile worker;
  Gate().OnCall("CLog::LogEvent", [&] { worker.Pass(); });
  impl->StopWork(false);
  EXPECT_EQ(StopperCalls(), kShutdown);
  EXPECT_FALSE(impl->GetDriverInteract());
  EXPECT_TRUE(worker.AwaitArrivals(1));
  worker.Open();
  EXPECT_TRUE(Clock().AwaitParked(5s));
}

TEST_F(ConnectedModule, StopWorkClearsTheMonitorObjectsFirstIfRequested) {
  Connect();
  Turnstile worker;
  Gate().OnCall("CLog::LogEvent", [&] { worker.Pass(); });
  impl->StopWork(true);
  Lines expected = kShutdown;
  expected.insert(expected.begin(), "CPortClient::Send(3, no reply, true)");
  EXPECT_EQ(StopperCalls(), expected);
  ASSERT_EQ(host.RequestsOf(3).size(), 1u);
  EXPECT_TRUE(
      SameBytes(GoldenRequest("e3 4a a3 29 e7 ff 79 8f  03 00 00 00  01 00 00 00"), host.RequestsOf(3)[0].bytes));
  EXPECT_TRUE(worker.AwaitArrivals(1));
  worker.Open();
  EXPECT_TRUE(Clock().AwaitParked(5s));
}

TEST_F(ConnectedModule, TheMonitorObjectTypeIs2IfTheFlagIsClear) {
  Settings().monitorObjectFlag = false;
  impl = Keep(std::make_shared<CFenluxImpl>(host.Context()));
  Settings().monitorObjectFlag = true;  // fixed at construction
  Connect();
  impl->StopWork(true);
  ASSERT_EQ(host.RequestsOf(3).size(), 1u);
  EXPECT_EQ(host.RequestsOf(3)[0].bytes.at(12), 2);
  EXPECT_TRUE(Clock().AwaitParked(5s));
}

TEST_F(ConnectedModule, StartWorkStopsARunningInterfaceEvenIfItStartsNothing) {
  Connect();
  Settings().enabled = false;
  impl->StartWork();
  EXPECT_EQ(Gate().Count("CPortClient::Send(3, no reply, true)"), 1u);
  EXPECT_GE(Gate().Count("CPortClient::Close"), 1u);
  EXPECT_FALSE(impl->GetDriverInteract());
  EXPECT_TRUE(Clock().AwaitParked(5s));
}

TEST_F(ConnectedModule, TheInterfaceIsInaccessibleFromItsClearingToTheEndOfItsShutdown) {
  Connect();
  Turnstile worker;  // holds the connection worker before it shuts down too
  Gate().OnCall("CLog::LogEvent", [&] { worker.Pass(); });
  std::vector<std::unique_ptr<BlockedCall>> others;
  const Lines operations{"CPortClient::Send", "CPortClient::Close", "CRecordRegistration::Withdraw",
                         "CNetObject::Release"};
  for (const std::string& operation : operations) {
    Gate().OnCall(operation, [&, operation] {
      others.push_back(std::make_unique<BlockedCall>([&] { impl->GetDriverInteract(); }));
      EXPECT_FALSE(others.back()->ReturnsEarly()) << "while " << operation << " runs";
    });
  }
  impl->StopWork(true);
  EXPECT_EQ(others.size(), operations.size());
  others.clear();
  Gate().RemoveHooks();
  worker.Open();
  EXPECT_TRUE(Clock().AwaitParked(5s));
}

TEST_F(ConnectedModule, AFailedClearingStillShutsDownAndThenPropagates) {
  for (const Failure failure : kAllFailures) {
    impl = Keep(std::make_shared<CFenluxImpl>(host.Context()));
    ResetClock();
    Connect();
    Gate().FailAt("CPortClient::Send", 1, failure);
    EXPECT_TRUE(Propagates(failure, [&] { impl->StopWork(true); }));
    EXPECT_GE(Gate().Count("CPortClient::Close"), 1u);
    EXPECT_EQ(Gate().Count("CRecordRegistration::Withdraw"), 1u);
    EXPECT_EQ(Gate().Count("CNetObject::Release"), 1u);
    EXPECT_TRUE(Clock().AwaitParked(5s)) << "the connection ended";
  }
}

TEST_F(ConnectedModule, StartWorkThrowsAndStartsNothingIfTheDriverRefusesToBeCleared) {
  Connect();
  Gate().FailAt("CPortClient::Send", 1, Failure::kStandard);
  EXPECT_TRUE(Propagates(Failure::kStandard, [&] { impl->StartWork(); }));
  EXPECT_EQ(Gate().Count("CCfgEx::IsEnabled"), 0u);
  EXPECT_TRUE(Clock().AwaitParked(5s));
}

TEST_F(ConnectedModule, AFailedShutdownReleasesTheLock) {
  Connect();
  Gate().FailAt("CPortClient::Close", 1, Failure::kStandard);
  EXPECT_TRUE(Propagates(Failure::kStandard, [&] { impl->StopWork(false); }));
  EXPECT_FALSE(impl->GetDriverInteract());
  EXPECT_TRUE(Clock().AwaitParked(5s));
}

TEST_F(ConnectedModule, AHandleHeldAfterAStopStaysValidButIsNotReady) {
  Connect();
  const auto kept = impl->GetDriverInteract();
  impl->StopWork(false);
  ASSERT_TRUE(Clock().AwaitParked(5s));
  Clock().Advance(5s);
  ASSERT_TRUE(Gate().AwaitCount("CPortClient::Wait", 1));
  EXPECT_FALSE(kept->IsDriverReady());
  EXPECT_TRUE(kept->IsStopRequested());
  EXPECT_EQ(kept->GetImplementationCode(), 7u);
  EXPECT_NE(impl->GetDriverInteract(), kept);
}

TEST_F(ConnectedModule, StartWorkStartsBothWorkers) {
  Settings().waitBlocks = true;
  impl->StartWork();
  ASSERT_TRUE(Gate().AwaitCount("CPortClient::Wait", 1));
  // The policy worker polls.
  ASSERT_TRUE(RepeatUntil([&] { return Gate().Count("CPortClient::Send(24") != 0; }, [] { Clock().Advance(100ms); }));
  EXPECT_TRUE(impl->GetDriverInteract());
}

TEST_F(ConnectedModule, ASecondStartWorkEndsTheConnectionAndItsOwnConnectionWorker) {
  Settings().waitBlocks = true;
  impl->StartWork();
  ASSERT_TRUE(Gate().AwaitCount("CPortClient::Wait", 1));
  impl->StartWork();
  ASSERT_TRUE(Gate().AwaitCount(Problem("[dci,tiwk] There is another thread doing work. We should exit."), 1));
  ASSERT_TRUE(Clock().AwaitParked(5s)) << "the first worker retries later";
  EXPECT_EQ(Gate().Count("CGlobalContext::GetNet"), 1u);
  // Two policy workers now run. The first may have to be woken from its wait, or may be in the pause after a pass that
  // the end of the connection cut short.
  EXPECT_TRUE(RepeatUntil([] { return Clock().Parked(100ms) + Clock().Parked(1s) >= 2; },
                          [&] { impl->NotifyPolicyChanged(); }));
}

// ---------------------------------------------------------------- destruction

namespace {
class ConnectedModuleDestruction : public ConnectedModule {
 protected:
  // A separate module with an open connection whose connection worker never touches it again: a worker that cannot
  // report its attempt reaches its pause with the interface unchanged, and stays parked there.
  std::shared_ptr<CFenluxImpl> Abandoned() {
    Clock().Reset();
    auto module = std::make_shared<CFenluxImpl>(host.Context());
    Gate().FailAt("CPortClient::Wait", 1, Failure::kStandard);
    Gate().FailAt("CLog::LogProblem", 1, Failure::kStandard);
    StartDetachedThread([worked = module.get()] { worked->ConnectionWorker(); });
    EXPECT_TRUE(Clock().AwaitParked(5s));
    EXPECT_TRUE(Clock().AwaitPauses(std::chrono::milliseconds(Settings().refreshInterval), 1));
    Clock().Reset();
    EXPECT_TRUE(module->GetDriverInteract());
    Forget();
    return module;
  }
  // The module clears and shuts down the interface; the interface's own destructor closes again.
  const Lines kEnd{"CPortClient::Send(3, no reply, true)", "CPortClient::Close()", "CRecordRegistration::Withdraw()",
                   "CNetObject::Release(0)", "CPortClient::Close()"};
};
}  // namespace

TEST_F(ConnectedModuleDestruction, ClearsAndShutsDownTheInterface) {
  auto module = Abandoned();
  const std::weak_ptr<CKDIBase> interact = module->GetDriverInteract();
  module.reset();
  EXPECT_EQ(StopperCalls(), kEnd);
  EXPECT_TRUE(interact.expired());
}

TEST_F(ConnectedModuleDestruction, SwallowsEveryFailure) {
  for (const Failure failure : kAllFailures) {
    auto module = Abandoned();
    for (const char* operation :
         {"CPortClient::Send", "CPortClient::Close", "CRecordRegistration::Withdraw", "CNetObject::Release"}) {
      Gate().FailAlways(operation, failure);
    }
    module.reset();
    EXPECT_EQ(StopperCalls(), kEnd) << NameOf(failure);
    Gate().StopFailing();
  }
}

TEST_F(FenluxImpl, TheDestructorOfAnIdleModuleCallsNothing) {
  auto impl = New();
  impl.reset();
  EXPECT_TRUE(Gate().Entries().empty());
}

TEST_F(FenluxImpl, TheDestructorReleasesEveryService) {
  const auto contexts = host.Context().use_count();
  const auto holders = host.Core().use_count();
  {
    const auto impl = New();
    impl->Translate("fetches the locale service");
  }
  EXPECT_EQ(host.Context().use_count(), contexts);
  EXPECT_EQ(host.Core().use_count(), holders);
}

}  // namespace fenlux::testing
