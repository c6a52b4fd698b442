// What the tests of the module's two workers begin with. The workers never end: each test leaves them parked in the
// manual clock or blocked in a port client, with the module object that they use kept for good.
#pragma once

#include "tests/unit/module/module_test.h"

namespace fenlux::testing {

class WorkerTest : public ModuleTest {
 protected:
  WorkerTest() : impl(Keep(std::make_shared<CFenluxImpl>(host.Context()))) { Forget(); }
  ~WorkerTest() override {
    Gate().StopFailing();
    Gate().RemoveHooks();
    Clock().Reset();  // whoever is parked stays so
  }

  void StartConnectionWorker() {
    std::thread([module = impl.get()] { module->ConnectionWorker(); }).detach();
  }
  void StartPolicyWorker() {
    std::thread([module = impl.get()] { module->PolicyWorker(); }).detach();
  }
  // A connection worker whose connection stands, and a journal that is empty again.
  void Connect() {
    Settings().waitBlocks = true;
    StartConnectionWorker();
    ASSERT_TRUE(Gate().AwaitCount("CPortClient::Wait", 1));
    Settle();
  }
  // The report of a failure at a host call, as the inner and the outer handler of the connection worker write it.
  static std::string InnerReport(Failure failure) {
    return failure == Failure::kInt ? "[dci,OTHE]" : "[dci,tiwk,STDE] info=" + MessageOf(failure);
  }
  static std::string OuterReport(Failure failure) { return ReportByKind("dci,tiwk-2", failure); }

  std::shared_ptr<CFenluxImpl> impl;
};

}  // namespace fenlux::testing
