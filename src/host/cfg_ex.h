// The host's extended configuration: the module's settings and the monitoring policy, read where they are needed.
#pragma once

#include <boost/filesystem/path.hpp>
#include <cstdint>
#include <memory>
#include <vector>

namespace fenlux {

class CBuf;

// One monitored object of the policy.
class CPolicyObject {
 public:
  // The directory to monitor. Policy worker.
  virtual boost::filesystem::path GetMonitorPath() = 0;

 protected:
  ~CPolicyObject() = default;
};

using MonitorPolicy = std::vector<std::shared_ptr<CPolicyObject>>;

class CCfgEx {
 public:
  // The two values of the registration record and the net object. Connection worker, once per driver interface.
  virtual std::uint32_t GetRecordValue1() = 0;
  virtual std::uint32_t GetRecordValue2() = 0;
  // The value that names the port to the port client. Connection worker, once per driver interface.
  virtual std::uint32_t GetPortValue() = 0;
  // Whether StartWork starts anything. Host thread.
  virtual bool IsEnabled() = 0;
  // Kept by the driver interface and read by none of its operations. Connection worker, once per driver interface.
  virtual bool GetDriverInterfaceFlag() = 0;
  // The policy as it stands now; empty means that there is none. The list must not change while it is held: a changed
  // policy is a new list, announced by CFenlux::NotifyPolicyChanged. Policy worker.
  virtual std::shared_ptr<MonitorPolicy>& GetMonitorPolicy(std::shared_ptr<MonitorPolicy>& out) = 0;
  // True: every process lookup asks CWinWork and nothing is cached. Delivery threads, once per notification.
  virtual bool IsCacheBypassed() = 0;
  // True: notifications that carry identity data get an identity text. Delivery threads, once per notification.
  virtual bool IsIdentityTextAdded() = 0;
  // Milliseconds between two refreshes of the process cache; 0 refreshes back to back. Refresh thread, before every
  // pause.
  virtual std::uint32_t GetRefreshInterval() = 0;
  // The block that the driver is given as it is; empty means none. It must fit in 65549 bytes. Policy worker, host
  // threads.
  virtual const std::shared_ptr<CBuf>& GetDriverConfigBlock() = 0;
  // True: the driver is told client type 2 (else 1), and operations let through unjudged get verdict 7 (else 3).
  // Connection worker, once per driver interface.
  virtual bool GetClientTypeFlag() = 0;
  // The type of the policy's monitor objects: true 1, false 2. Host thread, once, inside init.
  virtual bool GetMonitorObjectFlag() = 0;

 protected:
  ~CCfgEx() = default;
};

}  // namespace fenlux
