// The driver interface: the operations of the module core and the host on one driver connection, and the host services
// that the implementation uses.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

#include "common/mutex.h"
#include "host/host.h"
#include "kdi/drvx_control.h"

namespace fenlux {

// Made inside a shared handle, one per connection attempt, and destroyed through it. Operations that send do not check
// whether the connection is ready; they throw what the port client throws, and std::runtime_error if no connection was
// ever opened. Host threads unless stated otherwise.
class CKDIBase : public CDrvXControl, public std::enable_shared_from_this<CKDIBase> {
 public:
  // Returns the driver's version, or 0 if the driver does not answer. Never throws: a failure is logged. Any thread.
  virtual std::uint32_t GetDriverVersion() = 0;
  // Whether the connection is open and not stopped. Any thread.
  virtual bool IsDriverReady() = 0;
  // Whether a stop was requested; a stopped interface never starts again. Any thread.
  virtual bool IsStopRequested() = 0;
  // Returns false.
  virtual bool QueryOptionalFeature() = 0;
  // Mode 1 sends switch 0, mode 3 sends switch 1; returns the mode. Otherwise sends nothing and throws
  // std::runtime_error: if `implemented` is false ("[wdi,grsp]Not implemented."), for mode 2 ("[wdi,granra]Not
  // supported-1."), and for any other mode ("[wdi,granra]Not supported-2.").
  virtual std::uint32_t SetGrspSwitch(bool implemented, std::uint32_t mode) = 0;
  // Returns true.
  virtual bool QuerySupportedFeature() = 0;
  // Makes the driver write its state to its debug output. Returns a translated text that says where to look for it.
  virtual std::string DumpDriverDebugInfo() = 0;
  // Mode 1 sends switch 1, mode 3 sends switch 0 (the opposite of SetGrspSwitch); returns 1. Throws like SetGrspSwitch,
  // with "[wdi,grpm]" as the tag of each message.
  virtual std::uint32_t SetGrpmSwitch(bool implemented, std::uint32_t mode) = 0;
  // Sends the value; returns 0. Throws std::runtime_error if `implemented` is false ("[wdi,grdto]Not implemented.").
  virtual std::uint32_t SetGrdtoValue(bool implemented, std::uint32_t value) = 0;
  // Returns 7.
  virtual std::uint32_t GetImplementationCode() = 0;
  // Sends 0 for on and 1 for off; returns true. Throws std::runtime_error if `implemented` is false
  // ("[wdi,grhara]Not implemented.").
  virtual bool SetGrharaSwitch(bool implemented, bool on) = 0;
  // Sends the four switches of CSpspSettings. If `skipMiddleSwitches` is not 0, sends 0 for the middle two without
  // querying them. Never throws: a failure is logged. Connection worker and host threads.
  virtual void SetSpspState(std::uint8_t skipMiddleSwitches) = 0;
  // Sends the driver the id of a system process: kind 2 is csrss.exe, kind 3 services.exe. Does nothing for an id of
  // all ones, or while the connection is not ready. Never throws: a failure is logged. Connection worker and host
  // threads; concurrent calls run one after the other.
  virtual void RegisterSystemProcess(std::uint32_t kind, std::uint64_t processId) = 0;
  // Sends the host's configuration block. If it does not fit in the request, sends nothing and throws
  // std::runtime_error. Policy worker and host threads.
  virtual void SendDriverConfig() = 0;
  // Opens the connection and serves it on the calling thread until it ends; returns at once if a stop was requested.
  // Throws what the host's services throw. Connection worker, once.
  virtual void RunDriverConnection() = 0;
  // Ends the connection for good and makes RunDriverConnection return; may be called more than once. Throws what
  // CPortClient::Close throws. Never blocks on a lock that is held while the host's code runs. Any thread.
  virtual void StopInteract() = 0;
  // Does nothing: this driver delivers no data this way.
  virtual void OnKernelData(std::uint64_t data) = 0;
  // Throws std::runtime_error ("[wdi,ltrkd]Windows MUST NOT trigger here!").
  virtual void TriggerLtrkd() = 0;

 protected:
  // Obtains every service and registers the interface with the host. Throws std::runtime_error naming the first
  // required service that is missing.
  explicit CKDIBase(const std::shared_ptr<CGlobalContext>& globalContext);
  ~CKDIBase() = default;

  std::shared_ptr<CUtility> utility;                  // CGlobalContext::GetUtility
  std::shared_ptr<CGlobalContext> context;            // the host
  std::shared_ptr<CLog> log;                          // CGlobalContext::GetLog
  std::shared_ptr<CCfg> cfg;                          // CGlobalContext::GetCfg
  std::shared_ptr<CAoArp> aoArp;                      // CGlobalContext::GetAoArp
  std::shared_ptr<CArpMgmt> arpMgmt;                  // CGlobalContext::GetArpMgmt
  std::shared_ptr<CCfgEx> cfgEx;                      // CGlobalContext::GetCfgEx
  std::shared_ptr<CNetObject> netObject;              // may be null; CNetObject::Release is called once, at shutdown
  bool clientTypeFlag = false;                        // true: client type 2, false: 1
  bool cfgExOption = false;                           // not read by any operation
  Mutex baseMutex;                                    // serializes RegisterSystemProcess
  std::shared_ptr<CLocale> locale;                    // CGlobalContext::GetLocale
  std::shared_ptr<CRecordRegistration> recordHandle;  // may be null; withdrawn once, at shutdown
  std::uint32_t portValue = 0;                        // CCfgEx::GetPortValue
  std::atomic<bool> shutDown{false};                  // set by the first shutdown, the only one to withdraw and release
};

}  // namespace fenlux
