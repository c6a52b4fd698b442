// The fixture for tests of the module's two workers. The workers never end: each test leaves them parked in the manual
// clock or blocked in a port client, and keeps the module object they use alive for good.
#pragma once

#include "common/detached_thread.h"
#include "tests/support/turnstile.h"
#include "tests/unit/module/module_test.h"

namespace fenlux::testing {

class WorkerTest : public ModuleTest {
 protected:
  WorkerTest() : impl(Keep(std::make_shared<CFenluxImpl>(host.Context()))) { Forget(); }
  ~WorkerTest() override {
    Gate().StopFailing();
    Gate().RemoveHooks();
    Clock().Reset();  // parked threads stay parked
  }

  void StartConnectionWorker() {
    StartDetachedThread([module = impl.get()] { module->ConnectionWorker(); });
  }
  void StartPolicyWorker() {
    StartDetachedThread([module = impl.get()] { module->PolicyWorker(); });
  }
  // Starts a connection worker, waits until it is connected, and clears the journal.
  void Connect() {
    Settings().waitBlocks = true;
    StartConnectionWorker();
    ASSERT_TRUE(Gate().AwaitCount("CPortClient::Wait", 1));
    Settle();
  }
  // Starts a pass of the policy worker, which is waiting for a change or about to. Notifies it until the pass has begun
  // and not again after that.
  void TriggerPass() {
    const auto begun = std::make_shared<Turnstile>();
    Gate().OnCall("CCfgEx::GetMonitorPolicy", [begun] { begun->Pass(); });
    EXPECT_TRUE(RepeatUntil([&] { return begun->Arrivals() != 0; }, [&] { impl->NotifyPolicyChanged(); }));
    Gate().RemoveHook("CCfgEx::GetMonitorPolicy");
    begun->Open();
  }
  // The report of a failed host call, by the inner and by the outer handler of the connection worker.
  static std::string InnerReport(Failure failure) {
    return failure == Failure::kInt ? "[dci,OTHE]" : Report("dci,tiwk", failure);
  }
  static std::string OuterReport(Failure failure) { return ReportByKind("dci,tiwk-2", failure); }

  std::shared_ptr<CFenluxImpl> impl;
};

}  // namespace fenlux::testing
