// The service locator that the host passes to init; the module reaches every service of the host through it.
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

// The module's objects keep the context, and the services they use, for as long as they live. An empty handle means
// that the service is missing. If a required service is missing, constructing the object that needs it (the module in
// init, or a driver interface on the connection worker) fails with a message that names the service. Getters: any
// thread, concurrently.
class CGlobalContext {
 public:
  // Returns the base configuration. Required. Also called on delivery threads, once per notification.
  virtual std::shared_ptr<CCfg> GetCfg() = 0;
  // Returns the log. Required. Also called on delivery threads while notifications are measured.
  virtual std::shared_ptr<CLog> GetLog() = 0;
  // Returns the translation. Required by the driver interface. While it is missing, the module core logs untranslated
  // texts and asks again.
  virtual std::shared_ptr<CLocale> GetLocale() = 0;
  // Returns conversions and buffers. Required. Also called on delivery threads while notifications are measured.
  virtual std::shared_ptr<CUtility> GetUtility() = 0;
  // Returns the factory of network objects. Required by the driver interface.
  virtual std::shared_ptr<CNet> GetNet() = 0;
  // Returns the register of driver interfaces. Optional: without it, nothing is registered.
  virtual const std::shared_ptr<CRecordService>& GetRecordService() = 0;
  // Returns process queries and port clients. Required by the driver interface.
  virtual const std::shared_ptr<CWinWork>& GetWinWork() = 0;
  // Returns the factory of event records. Required by the driver interface.
  virtual std::shared_ptr<CArpMgmt> GetArpMgmt() = 0;
  // Returns the extended configuration. Required.
  virtual std::shared_ptr<CCfgEx> GetCfgEx() = 0;
  // Returns the judge. Required by the driver interface.
  virtual std::shared_ptr<CAoArp> GetAoArp() = 0;
  // Receives the module, once, during init. The host may keep the handle; the module stays alive without it. The module
  // holds no lock, so the host may call its operations from here. An exception leaves init. Host thread.
  virtual void RegisterModule(const std::shared_ptr<CFenlux>& module) = 0;

 protected:
  ~CGlobalContext() = default;
};

}  // namespace fenlux
