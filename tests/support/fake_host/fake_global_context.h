// The fake of host/global_context.h.
#pragma once

#include <memory>
#include <mutex>
#include <utility>

#include "host/global_context.h"
#include "tests/support/fake_host/fake_cfg.h"
#include "tests/support/fake_host/fake_locale.h"
#include "tests/support/fake_host/fake_log.h"
#include "tests/support/fake_host/fake_net.h"
#include "tests/support/fake_host/fake_record_service.h"
#include "tests/support/fake_host/host_core.h"

namespace fenlux::testing {

class FakeGlobalContext final : public CGlobalContext {
 public:
  FakeGlobalContext(const std::shared_ptr<HostCore>& hostCore, std::shared_ptr<CUtility> utilityService,
                    std::shared_ptr<CArpMgmt> arpMgmtService, std::shared_ptr<CAoArp> aoArpService,
                    std::shared_ptr<CWinWork> winWorkService, std::shared_ptr<CCfgEx> cfgExService)
      : core(hostCore),
        cfg(std::make_shared<FakeCfg>(hostCore)),
        log(std::make_shared<FakeLog>(hostCore)),
        locale(std::make_shared<FakeLocale>(hostCore)),
        utility(std::move(utilityService)),
        net(std::make_shared<FakeNet>(hostCore)),
        recordService(std::make_shared<FakeRecordService>(hostCore)),
        winWork(std::move(winWorkService)),
        arpMgmt(std::move(arpMgmtService)),
        cfgEx(std::move(cfgExService)),
        aoArp(std::move(aoArpService)) {}

  std::shared_ptr<CCfg> GetCfg() override { return Give("CGlobalContext::GetCfg", cfg); }
  std::shared_ptr<CLog> GetLog() override { return Give("CGlobalContext::GetLog", log); }
  std::shared_ptr<CLocale> GetLocale() override { return Give("CGlobalContext::GetLocale", locale); }
  std::shared_ptr<CUtility> GetUtility() override { return Give("CGlobalContext::GetUtility", utility); }
  std::shared_ptr<CNet> GetNet() override { return Give("CGlobalContext::GetNet", net); }
  const std::shared_ptr<CRecordService>& GetRecordService() override {
    return core->gate.Pass("CGlobalContext::GetRecordService") ? recordService : noRecordService;
  }
  const std::shared_ptr<CWinWork>& GetWinWork() override {
    return core->gate.Pass("CGlobalContext::GetWinWork") ? winWork : noWinWork;
  }
  std::shared_ptr<CArpMgmt> GetArpMgmt() override { return Give("CGlobalContext::GetArpMgmt", arpMgmt); }
  std::shared_ptr<CCfgEx> GetCfgEx() override { return Give("CGlobalContext::GetCfgEx", cfgEx); }
  std::shared_ptr<CAoArp> GetAoArp() override { return Give("CGlobalContext::GetAoArp", aoArp); }
  void RegisterModule(const std::shared_ptr<CFenlux>& module) override {
    {
      const std::lock_guard lock(core->mutex);
      core->module = module;
    }
    core->gate.Pass("CGlobalContext::RegisterModule", module ? "module" : "nothing");
  }

 private:
  template <class Service>
  std::shared_ptr<Service> Give(const char* operation, const std::shared_ptr<Service>& service) {
    return core->gate.Pass(operation) ? service : std::shared_ptr<Service>();
  }

  std::shared_ptr<HostCore> core;
  std::shared_ptr<CCfg> cfg;
  std::shared_ptr<CLog> log;
  std::shared_ptr<CLocale> locale;
  std::shared_ptr<CUtility> utility;
  std::shared_ptr<CNet> net;
  std::shared_ptr<CRecordService> recordService;
  std::shared_ptr<CRecordService> noRecordService;
  std::shared_ptr<CWinWork> winWork;
  std::shared_ptr<CWinWork> noWinWork;
  std::shared_ptr<CArpMgmt> arpMgmt;
  std::shared_ptr<CCfgEx> cfgEx;
  std::shared_ptr<CAoArp> aoArp;
};

}  // namespace fenlux::testing
