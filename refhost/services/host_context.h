// The service locator that the reference host passes to the module.
#pragma once

#include <memory>
#include <utility>

#include "common/mutex.h"
#include "host/host.h"

namespace fenlux::refhost {

// All services of the host. They are created once and live as long as the host.
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
    const MutexLock lock(mutex);
    module = registered;
  }

  // The registered module; null before registration. Any thread.
  std::shared_ptr<CFenlux> Module() const {
    const MutexLock lock(mutex);
    return module;
  }

 private:
  const HostServices services;
  mutable Mutex mutex;
  std::shared_ptr<CFenlux> module FENLUX_GUARDED_BY(mutex);
};

}  // namespace fenlux::refhost
