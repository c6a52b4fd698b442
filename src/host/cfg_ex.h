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
  // Returns the directory to monitor, as an absolute path: the module passes it to the driver as it is. A path that
  // does not exist or is no directory is skipped with a log line. Policy worker.
  virtual boost::filesystem::path GetMonitorPath() = 0;

 protected:
  ~CPolicyObject() = default;
};

// The objects to monitor, in the order in which the driver gets them. Null elements are skipped.
using MonitorPolicy = std::vector<std::shared_ptr<CPolicyObject>>;

// The extended configuration. One object for the life of the host.
class CCfgEx {
 public:
  // Returns the first of two values that the module only carries: to CNet::CreateObject and CKdiRecord::SetValue1. 0 if
  // the host has no use for it. Connection worker, once per driver interface.
  virtual std::uint32_t GetRecordValue1() = 0;
  // Returns the second of the two values, for CNet::CreateObject and CKdiRecord::SetValue2. 0 if the host has no use
  // for it. Connection worker, once per driver interface.
  virtual std::uint32_t GetRecordValue2() = 0;
  // Returns a value that the module only carries, to CWinWork::CreatePortClient, CKdiRecord::SetPortValue and
  // CFenlux::GetDriverPortValue. It does not reach the driver. A host with one port may return any number. Connection
  // worker, once per driver interface.
  virtual std::uint32_t GetPortValue() = 0;
  // Returns whether CFenlux::StartWork starts the workers. Host thread.
  virtual bool IsEnabled() = 0;
  // Returns a flag that the driver interface stores and no operation uses; return false. Connection worker, once per
  // driver interface.
  virtual bool GetDriverInterfaceFlag() = 0;
  // Writes the current policy, or an empty handle if there is none, into `out` and returns `out`. An empty list makes
  // the driver forget its objects; with an empty handle, the module sends no objects at all. The list must not change
  // while the module holds it: to change the policy, return a new list and call CFenlux::NotifyPolicyChanged. Policy
  // worker.
  virtual std::shared_ptr<MonitorPolicy>& GetMonitorPolicy(std::shared_ptr<MonitorPolicy>& out) = 0;
  // Returns whether every process lookup queries CWinWork instead of the cache. Delivery threads, once per
  // notification.
  virtual bool IsCacheBypassed() = 0;
  // Returns whether notifications with an identity block get a text of CWinWork::GetIdentityText. Delivery threads,
  // once per notification.
  virtual bool IsIdentityTextAdded() = 0;
  // Returns the milliseconds between two refreshes of the process cache, in wall-clock time: setting the clock forward
  // brings the next refresh forward. 0 refreshes without a pause. If it throws, the last value is used again. Refresh
  // thread, before every pause.
  virtual std::uint32_t GetRefreshInterval() = 0;
  // Returns the block that command 24 passes to the driver unread, at most 65549 bytes, or an empty handle for none
  // (the command is then sent without one). Its format is an agreement between the agent and the driver; the command
  // does not state its size, so the driver must see from the block itself where it ends. Policy worker, host threads.
  virtual const std::shared_ptr<CBuf>& GetDriverConfigBlock() = 0;
  // Returns true for client type 2, false for client type 1. The connect context and commands 4 and 6 state the type,
  // and operations that pass (decision 2 and oplock breaks) get verdict 7 with type 2 and verdict 3 with type 1. What
  // else the type means is an agreement between the agent and the driver. Connection worker, once per driver interface.
  virtual bool GetClientTypeFlag() = 0;
  // Returns the object type of the policy's directories in commands 1 and 3: true for 1, false for 2. The driver
  // defines what the types mean. Host thread, once, during init.
  virtual bool GetMonitorObjectFlag() = 0;

 protected:
  ~CCfgEx() = default;
};

}  // namespace fenlux
