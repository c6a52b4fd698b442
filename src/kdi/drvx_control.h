// Operations on the driver's monitored objects and network control.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <vector>

namespace fenlux {

// One element of a network-control list. The module passes it on unread: what it means is an agreement between the
// agent and the driver.
struct NetControlItem {
  std::array<std::uint8_t, 48> opaque;  // the first 48 bytes of the item
  std::uint32_t value;                  // a number, sent little-endian
};
static_assert(sizeof(NetControlItem) == 52);

// The items of one list, in the order in which the driver gets them.
using NetControlItems = std::vector<NetControlItem>;

// The network-control operations take no lock: run only one of them at a time, or their lists mix in the driver. An
// operation that sends throws what the port client throws, and std::runtime_error if no connection was ever opened.
// Host threads; the monitor-object operations also on the policy worker.
class CDrvXControl {
 public:
  // Queues a path (narrow text, NUL-terminated) for SendMonitorObjects and returns true. `objectType` is 1, 2 or 3:
  // types 1 and 2 share one list, type 3 has its own; duplicates and order are kept. Throws std::runtime_error if
  // `kernelSide` is set ("NOT supported under windows driver!"), and for a null path or another type ("[wdi,aodm] bad
  // parameter!"). Any thread.
  virtual bool AddMonitorObject(bool kernelSide, const char* path, int objectType) = 0;
  // Sends the queued objects of the type's list to the driver, commits them, logs the outcome of each, and empties the
  // list in any case. Failures to send are logged, not thrown; a type other than 1, 2 or 3 throws std::runtime_error
  // ("[wdi,samtd] bad parameter!"). Any thread.
  virtual void SendMonitorObjects(int objectType) = 0;
  // Empties the type's list and, while the connection is ready, makes the driver forget its objects of that type.
  // Returns true. Throws std::runtime_error for another type ("[wdi,gcm] bad parameter!"). Any thread.
  virtual bool ClearMonitorObjects(int objectType) = 0;
  // Switches network control to mode 1 and empties item lists 1, 2 and 3.
  virtual void EnterNetControlMode1() = 0;
  // Loads item list 3, then switches network control to mode 4 (if `alternate`) or 2. A null handle is an empty list.
  // Items that cannot be sent are counted and logged as one line.
  virtual void ApplyNetControlItems(bool alternate, const std::shared_ptr<NetControlItems>& items) = 0;
  // Switches network control to mode 3 and empties item lists 1, 2 and 3.
  virtual void EnterNetControlMode3() = 0;
  // Loads item list 1 or 2, like ApplyNetControlItems without the mode. Throws std::runtime_error for another type
  // ("[wdi,ncadp] bad para!").
  virtual void AddNetControlItems(int itemType, const std::shared_ptr<NetControlItems>& items) = 0;

 protected:
  ~CDrvXControl() = default;
};

}  // namespace fenlux
