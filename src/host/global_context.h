// The service locator that the host hands to init: every service of the host is reached through it.
#pragma once

#include <memory>

namespace fenlux {

class CAoArp;
class CArpMgmt;
class CCfg;
class CCfgEx;
class CFenlux;
class CLocale;
class CLog;
class CNet;
class CRecordService;
class CUtility;
class CWinWork;

// The module keeps the context, and each service it asked for, until its own objects end. An empty handle means that
// the service is missing: where the module cannot work without it, construction fails with a message that names it.
// Getters: any thread, several at once.
class CGlobalContext {
 public:
  // Required. Also once per notification, on delivery threads.
  virtual std::shared_ptr<CCfg> GetCfg() = 0;
  // Required. Also on delivery threads while notifications are measured.
  virtual std::shared_ptr<CLog> GetLog() = 0;
  // Required by the driver interface; the module core logs untranslated, and asks again, while it is missing.
  virtual std::shared_ptr<CLocale> GetLocale() = 0;
  // Required. Also on delivery threads while notifications are measured.
  virtual std::shared_ptr<CUtility> GetUtility() = 0;
  // Required by the driver interface.
  virtual std::shared_ptr<CNet> GetNet() = 0;
  // Optional: without it nothing is registered.
  virtual const std::shared_ptr<CRecordService>& GetRecordService() = 0;
  // Required by the driver interface.
  virtual const std::shared_ptr<CWinWork>& GetWinWork() = 0;
  // Required by the driver interface.
  virtual std::shared_ptr<CArpMgmt> GetArpMgmt() = 0;
  // Required.
  virtual std::shared_ptr<CCfgEx> GetCfgEx() = 0;
  // Required by the driver interface.
  virtual std::shared_ptr<CAoArp> GetAoArp() = 0;
  // Receives the module, once, inside init. The module keeps itself alive; the host may keep the handle. No lock of
  // the module is held: the host may drive the module from inside the call. Host thread.
  virtual void RegisterModule(const std::shared_ptr<CFenlux>& module) = 0;

 protected:
  ~CGlobalContext() = default;
};

}  // namespace fenlux
