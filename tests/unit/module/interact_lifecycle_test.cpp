// Stopping, shutting down and destroying a driver interface, and the operations with fixed answers.
#include <future>

#include "tests/support/turnstile.h"
#include "tests/unit/module/module_test.h"

namespace fenlux::testing {
namespace {

class InteractLifecycle : public ModuleTest, public ::testing::WithParamInterface<Failure> {
 protected:
  const Lines kShutdownWithoutConnection{"CRecordRegistration::Withdraw()", "CNetObject::Release(0)"};
  const Lines kShutdown{"CPortClient::Close()", "CRecordRegistration::Withdraw()", "CNetObject::Release(0)"};
};

}  // namespace

TEST_F(InteractLifecycle, StopWithoutAPortClientOnlySetsTheFlags) {
  const auto interact = NewInteract();
  interact->StopInteract();
  EXPECT_FALSE(interact->IsDriverReady());
  EXPECT_TRUE(interact->IsStopRequested());
  EXPECT_TRUE(Gate().Entries().empty());
}

TEST_F(InteractLifecycle, StopClosesThePortClientEveryTime) {
  const auto interact = ReadyInteract();
  EXPECT_TRUE(interact->IsDriverReady());
  EXPECT_FALSE(interact->IsStopRequested());
  interact->StopInteract();
  EXPECT_FALSE(interact->IsDriverReady());
  EXPECT_TRUE(interact->IsStopRequested());
  interact->StopInteract();
  EXPECT_EQ(Gate().Entries(), (Lines{"CPortClient::Close()", "CPortClient::Close()"}));
}

TEST_F(InteractLifecycle, StopDoesNotWaitForPendingSends) {
  const auto interact = ReadyInteract();
  Turnstile sending;
  Gate().OnCall("CPortClient::Send", [&] { sending.Pass(); });
  std::thread monitors([&] { interact->SendMonitorObjects(1); });
  std::thread process([&] { interact->RegisterSystemProcess(2, 400); });
  EXPECT_TRUE(sending.AwaitArrivals(2));
  const auto stop = std::async(std::launch::async, [&] { interact->StopInteract(); });
  EXPECT_EQ(stop.wait_for(60s), std::future_status::ready) << "StopInteract waits for a sender's lock";
  EXPECT_EQ(Gate().Count("CPortClient::Close"), 1u);
  sending.Open();
  monitors.join();
  process.join();
}

TEST_F(InteractLifecycle, FixedAnswersAreTheSameInEveryState) {
  const auto expectAnswers = [](CKDIBase& interact) {
    EXPECT_FALSE(interact.QueryOptionalFeature());
    EXPECT_TRUE(interact.QuerySupportedFeature());
    EXPECT_EQ(interact.GetImplementationCode(), 7u);
    interact.OnKernelData(0);
    interact.OnKernelData(~std::uint64_t{0});
    EXPECT_EQ(RuntimeErrorOf([&] { interact.TriggerLtrkd(); }), "[wdi,ltrkd]Windows MUST NOT trigger here!");
  };
  const auto fresh = NewInteract();
  expectAnswers(*fresh);
  const auto ready = ReadyInteract();
  expectAnswers(*ready);
  EXPECT_TRUE(Gate().Entries().empty());
  ready->StopInteract();
  expectAnswers(*ready);
  ready->Shutdown();
  expectAnswers(*ready);
}

TEST_F(InteractLifecycle, ShutdownStopsWithdrawsAndReleases) {
  const auto interact = ReadyInteract();
  interact->Shutdown();
  EXPECT_EQ(Gate().Entries(), kShutdown);
  EXPECT_FALSE(interact->IsDriverReady());
  EXPECT_TRUE(interact->IsStopRequested());
}

TEST_F(InteractLifecycle, ASecondShutdownOnlyStopsAgain) {
  const auto interact = ReadyInteract();
  interact->Shutdown();
  Forget();
  interact->Shutdown();
  EXPECT_EQ(Gate().Entries(), Lines{"CPortClient::Close()"});
}

TEST_F(InteractLifecycle, TheDestructorShutsDown) {
  auto interact = NewInteract();
  interact.reset();
  EXPECT_EQ(Gate().Entries(), kShutdownWithoutConnection);
}

TEST_F(InteractLifecycle, TheDestructorOfAShutDownInterfaceReleasesNothingTwice) {
  auto interact = NewInteract();
  interact->Shutdown();
  EXPECT_EQ(Gate().Entries(), kShutdownWithoutConnection);
  interact.reset();
  EXPECT_EQ(Gate().Entries(), kShutdownWithoutConnection);
}

TEST_P(InteractLifecycle, AFailingCloseStillWithdrawsAndReleasesAndThenPropagates) {
  const auto interact = ReadyInteract();
  Gate().FailAt("CPortClient::Close", 1, GetParam());
  EXPECT_TRUE(Propagates(GetParam(), [&] { interact->Shutdown(); }));
  EXPECT_EQ(Gate().Entries(), kShutdown);
  EXPECT_TRUE(interact->IsStopRequested());
}

TEST_P(InteractLifecycle, AFailingWithdrawalStillReleasesAndThenPropagates) {
  const auto interact = ReadyInteract();
  Gate().FailAt("CRecordRegistration::Withdraw", 1, GetParam());
  EXPECT_TRUE(Propagates(GetParam(), [&] { interact->Shutdown(); }));
  EXPECT_EQ(Gate().Entries(), kShutdown);
  Forget();
  interact->Shutdown();
  EXPECT_EQ(Gate().Entries(), Lines{"CPortClient::Close()"}) << "a failed step is not retried";
}

TEST_P(InteractLifecycle, AFailingReleasePropagates) {
  const auto interact = ReadyInteract();
  Gate().FailAt("CNetObject::Release", 1, GetParam());
  EXPECT_TRUE(Propagates(GetParam(), [&] { interact->Shutdown(); }));
}

TEST_P(InteractLifecycle, TheFirstOfTwoFailuresPropagates) {
  const auto interact = ReadyInteract();
  Gate().FailAt("CPortClient::Close", 1, GetParam());
  Gate().FailAt("CNetObject::Release", 1, GetParam() == Failure::kInt ? Failure::kStandard : Failure::kInt);
  EXPECT_TRUE(Propagates(GetParam(), [&] { interact->Shutdown(); }));
}

TEST_P(InteractLifecycle, StopPropagatesAFailingClose) {
  const auto interact = ReadyInteract();
  Gate().FailAt("CPortClient::Close", 1, GetParam());
  EXPECT_TRUE(Propagates(GetParam(), [&] { interact->StopInteract(); }));
  EXPECT_TRUE(interact->IsStopRequested());
  EXPECT_FALSE(interact->IsDriverReady());
}

TEST_P(InteractLifecycle, TheDestructorSwallowsEveryFailure) {
  auto interact = ReadyInteract();
  Gate().FailAlways("CPortClient::Close", GetParam());
  Gate().FailAlways("CRecordRegistration::Withdraw", GetParam());
  Gate().FailAlways("CNetObject::Release", GetParam());
  interact.reset();
  EXPECT_EQ(Gate().Entries(), kShutdown);
}

INSTANTIATE_TEST_SUITE_P(Failures, InteractLifecycle, ::testing::ValuesIn(kAllFailures),
                         [](const auto& instance) { return "F" + std::to_string(static_cast<int>(instance.param)); });

TEST_F(InteractLifecycle, TheDestructorReleasesEveryService) {
  const auto contexts = host.Context().use_count();
  const auto holders = host.Core().use_count();
  {
    const auto interact = NewInteract();
    EXPECT_GT(host.Context().use_count(), contexts);
  }
  EXPECT_EQ(host.Context().use_count(), contexts);
  EXPECT_EQ(host.Core().use_count(), holders);
}

}  // namespace fenlux::testing
