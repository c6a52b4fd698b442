// The service locator that the reference host hands to the module.
#pragma once

#include <memory>
#include <mutex>

#include "host/host.h"

namespace fenlux::refhost {

// Every service of the host. They are made once and stay for the host's life.
struct HostServices {
  std::shared_ptr<CCfg> cfg;
  std::shared_ptr<CLog> log;
  std::shared_ptr<CLocale> locale;
  std::shared_ptr<CUtility> utility;
  std::shared_ptr<CNet> net;
  std::shared_ptr<CRecordService> recordService;
  std::shared_ptr<CWinWork> winWork;
  std::shared_ptr<CArpMgmt> arpMgmt;
  std::shared_ptr<CCfgEx> cfgEx;
  std::shared_ptr<CAoArp> aoArp;
};

class HostContext final : public CGlobalContext {
 public:
  explicit HostContext(HostServices hostServices) : services(std::move(hostServices)) {}

  std::shared_ptr<CCfg> GetCfg() override { return services.cfg; }
  std::shared_ptr<CLog> GetLog() override { return services.log; }
  std::shared_ptr<CLocale> GetLocale() override { return services.locale; }
  std::shared_ptr<CUtility> GetUtility() override { return services.utility; }
  std::shared_ptr<CNet> GetNet() override { return services.net; }
  const std::shared_ptr<CRecordService>& GetRecordService() override { return services.recordService; }
  const std::shared_ptr<CWinWork>& GetWinWork() override { return services.winWork; }
  std::shared_ptr<CArpMgmt> GetArpMgmt() override { return services.arpMgmt; }
  std::shared_ptr<CCfgEx> GetCfgEx() override { return services.cfgEx; }
  std::shared_ptr<CAoArp> GetAoArp() override { return services.aoArp; }
  void RegisterModule(const std::shared_ptr<CFenlux>& registered) override {
    const std::lock_guard lock(mutex);
    module = registered;
  }

  // What the module registered; empty before. Any thread.
  std::shared_ptr<CFenlux> Module() const {
    const std::lock_guard lock(mutex);
    return module;
  }

 private:
  const HostServices services;
  mutable std::mutex mutex;
  std::shared_ptr<CFenlux> module;
};

}  // namespace fenlux::refhost
