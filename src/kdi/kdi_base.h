// The driver interface: every operation that the module core and the host have on one driver connection, and the host
// services that its implementation works with.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

#include "common/mutex.h"
#include "host/host.h"
#include "kdi/drvx_control.h"

namespace fenlux {

// Made inside a shared handle, one per connection attempt, and destroyed through it. Host threads unless said
// otherwise. Operations that send throw what the port client throws, and std::runtime_error where no connection was
// ever opened; they do not look at whether the connection is ready.
class CKDIBase : public CDrvXControl, public std::enable_shared_from_this<CKDIBase> {
 public:
  // Asks the driver for its version; 0 where it gave none. Never throws. Any thread.
  virtual std::uint32_t GetDriverVersion() = 0;
  // Whether the connection was opened and has not been stopped. Any thread.
  virtual bool IsDriverReady() = 0;
  // Whether the interface was told to stop; it never starts again. Any thread.
  virtual bool IsStopRequested() = 0;
  // Always false.
  virtual bool QueryOptionalFeature() = 0;
  // Mode 1 sends switch 0, mode 3 sends switch 1; returns the mode. Throws std::runtime_error for `implemented` false
  // ("[wdi,grsp]Not implemented."), mode 2 ("[wdi,granra]Not supported-1.") and any other ("[wdi,granra]Not
  // supported-2."), having sent nothing.
  virtual std::uint32_t SetGrspSwitch(bool implemented, std::uint32_t mode) = 0;
  // Always true.
  virtual bool QuerySupportedFeature() = 0;
  // Has the driver write its state to its debug output, and returns where to look for it.
  virtual std::string DumpDriverDebugInfo() = 0;
  // Mode 1 sends switch 1, mode 3 sends switch 0 (the opposite of SetGrspSwitch); returns 1. Throws as SetGrspSwitch
  // does, each message tagged "[wdi,grpm]".
  virtual std::uint32_t SetGrpmSwitch(bool implemented, std::uint32_t mode) = 0;
  // Sends the value; returns 0. Throws std::runtime_error for `implemented` false ("[wdi,grdto]Not implemented.").
  virtual std::uint32_t SetGrdtoValue(bool implemented, std::uint32_t value) = 0;
  // Always 7.
  virtual std::uint32_t GetImplementationCode() = 0;
  // Sends 0 for on and 1 for off; returns true. Throws std::runtime_error for `implemented` false
  // ("[wdi,grhara]Not implemented.").
  virtual bool SetGrharaSwitch(bool implemented, bool on) = 0;
  // Sends the four switches of CSpspSettings; the middle two as 0, without asking for them, where
  // `skipMiddleSwitches` is not 0. Never throws: a failure is logged. Connection worker and host threads.
  virtual void SetSpspState(std::uint8_t skipMiddleSwitches) = 0;
  // Tells the driver the id of a system process: kind 2 is csrss.exe, kind 3 services.exe. An id of all ones, and any
  // id while the connection is not ready, is passed over. Never throws, save where its lock cannot be taken: a failure
  // is logged. Connection worker and host threads, one at a time.
  virtual void RegisterSystemProcess(std::uint32_t kind, std::uint64_t processId) = 0;
  // Sends the host's configuration block; throws std::runtime_error, having sent nothing, where it does not fit in the
  // request. Policy worker and host threads.
  virtual void SendDriverConfig() = 0;
  // Runs one connection from opening to end on the calling thread; returns at once where a stop was requested. Throws
  // what the host's services throw. Connection worker, once.
  virtual void RunDriverConnection() = 0;
  // Ends the connection and makes RunDriverConnection return. Throws what CPortClient::Close throws. Takes no lock.
  // Any thread, also several times.
  virtual void StopInteract() = 0;
  // Does nothing: no kernel data comes this way.
  virtual void OnKernelData(std::uint64_t data) = 0;
  // Always throws std::runtime_error ("[wdi,ltrkd]Windows MUST NOT trigger here!").
  virtual void TriggerLtrkd() = 0;

 protected:
  // Obtains every service and enters the interface into the host's register. Throws std::runtime_error naming the
  // first required service that is missing.
  explicit CKDIBase(const std::shared_ptr<CGlobalContext>& globalContext);
  ~CKDIBase() = default;

  std::shared_ptr<CUtility> utility;
  std::shared_ptr<CGlobalContext> context;
  std::shared_ptr<CLog> log;
  std::shared_ptr<CCfg> cfg;
  std::shared_ptr<CAoArp> aoArp;
  std::shared_ptr<CArpMgmt> arpMgmt;
  std::shared_ptr<CCfgEx> cfgEx;
  std::shared_ptr<CNetObject> netObject;  // held for the object's life, released once at shutdown
  bool clientTypeFlag = false;            // client type 2 when true, 1 when false
  bool cfgExOption = false;               // kept; no operation reads it
  Mutex baseMutex;                        // held by RegisterSystemProcess for its whole run
  std::shared_ptr<CLocale> locale;
  std::shared_ptr<CRecordRegistration> recordHandle;  // withdrawn once at shutdown
  std::uint32_t portValue = 0;
  std::atomic<bool> shutDown{false};  // set by the first shutdown: the gate of withdrawal and release
};

}  // namespace fenlux
