// The host's extended configuration: the module's settings and the monitoring policy, queried each time they are
// needed unless stated otherwise.
#pragma once

#include <boost/filesystem/path.hpp>
#include <cstdint>
#include <memory>
#include <vector>

namespace fenlux {

class CBuf;

// One object of the monitoring policy.
class CPolicyObject {
 public:
  // Returns the directory to monitor. Policy worker.
  virtual boost::filesystem::path GetMonitorPath() = 0;

 protected:
  ~CPolicyObject() = default;
};

using MonitorPolicy = std::vector<std::shared_ptr<CPolicyObject>>;

class CCfgEx {
 public:
  // Return the two values of the registration record and of the net object, which the module passes on unread.
  // Connection worker, once per driver interface.
  virtual std::uint32_t GetRecordValue1() = 0;
  virtual std::uint32_t GetRecordValue2() = 0;
  // Returns the value that identifies the port to the port client. Connection worker, once per driver interface.
  virtual std::uint32_t GetPortValue() = 0;
  // Returns whether StartWork starts the workers. Host thread.
  virtual bool IsEnabled() = 0;
  // Stored by the driver interface; no operation uses it. Connection worker, once per driver interface.
  virtual bool GetDriverInterfaceFlag() = 0;
  // Writes the current policy, or an empty handle if there is none, into `out` and returns it. The list must not change
  // while the module holds it: to change the policy, return a new list and call CFenlux::NotifyPolicyChanged. Policy
  // worker.
  virtual std::shared_ptr<MonitorPolicy>& GetMonitorPolicy(std::shared_ptr<MonitorPolicy>& out) = 0;
  // True: every process lookup queries CWinWork, and the cache is not used. Delivery threads, once per notification.
  virtual bool IsCacheBypassed() = 0;
  // True: notifications with identity data get an identity text. Delivery threads, once per notification.
  virtual bool IsIdentityTextAdded() = 0;
  // Returns the milliseconds between two refreshes of the process cache, in wall-clock time: setting the clock forward
  // brings the next refresh forward. 0 refreshes without a pause. If it throws, the last value is used again. Refresh
  // thread, before every pause.
  virtual std::uint32_t GetRefreshInterval() = 0;
  // Returns the block that the module sends to the driver unread, at most 65549 bytes, or an empty handle for none.
  // Policy worker, host threads.
  virtual const std::shared_ptr<CBuf>& GetDriverConfigBlock() = 0;
  // True: the client type is 2 (else 1), and operations that pass, judged so or unjudged, get verdict 7 (else 3).
  // Connection worker, once per driver interface.
  virtual bool GetClientTypeFlag() = 0;
  // The type of the policy's monitor objects: true 1, false 2. Host thread, once, during init.
  virtual bool GetMonitorObjectFlag() = 0;

 protected:
  ~CCfgEx() = default;
};

}  // namespace fenlux
