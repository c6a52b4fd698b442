// One connection to a filter driver, from Connect to its end.
//
// The connection is shared by the port client, which the module holds, and the delivery threads. It owns the port's
// handle, the completion queue, and the message buffers.
//
// The handle: Close never waits for a call that uses the handle, and the handle is never closed during a call. Uses are
// counted; Close closes the handle if there are none, otherwise the last use does. To keep uses short, Close cancels
// calls that are blocked in the driver. The delivery threads repeat that until the handle is closed, because a call
// that has not reached the driver yet is not cancelled. A running handler is not a use: it may take any time, and its
// reply then finds the port closed.
//
// The buffers: the Filter Manager holds each one (it is outstanding), or a delivery thread does, or, after the end,
// neither. The Filter Manager returns all outstanding ones when the port is closed. The threads end once none is
// outstanding and the handle is closed.
//
// Replies: this class is responsible for replying to a message from its receipt until HandleMessage returns, except
// while the module's handler runs.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "common/mutex.h"
#include "host/port_client.h"
#include "refhost/base/platform/handle_win.h"
#include "refhost/port/filter_port_state_win.h"
#include "refhost/port/port_request.h"

namespace fenlux::refhost {

// Any thread.
class FilterConnection : public std::enable_shared_from_this<FilterConnection> {
 public:
  FilterConnection(std::shared_ptr<FilterPortState> sharedState, PortRequest portRequest)
      : state(std::move(sharedState)), request(std::move(portRequest)) {}
  FilterConnection(const FilterConnection&) = delete;
  FilterConnection& operator=(const FilterConnection&) = delete;

  void Connect();
  // Starts delivery.
  void Start();
  void Send(CBuf& message, CBuf* reply);
  void WaitEnded();
  // Ends the connection. Only the first reason is logged.
  void End(const std::string& reason);

 private:
  // One message buffer: the operation that fills it, the message with its header, and room for the reply.
  struct Slot {
    OVERLAPPED operation{};  // first, because the completion queue returns its address
    std::vector<std::uint8_t> message;
    std::vector<std::uint8_t> reply;
  };
  static_assert(offsetof(Slot, operation) == 0);

  // Keeps the port's handle open while it exists. False if the port is not open.
  class Use {
   public:
    // `receptions` is the number of buffers that are passed to the Filter Manager during this use.
    explicit Use(FilterConnection& used, std::size_t receptions = 0)
        : connection(used), handle(used.BeginUse(receptions)) {}
    ~Use() {
      if (handle != nullptr) connection.EndUse();
    }
    Use(const Use&) = delete;
    Use& operator=(const Use&) = delete;
    explicit operator bool() const { return handle != nullptr; }
    HANDLE Get() const { return handle; }

   private:
    FilterConnection& connection;
    const HANDLE handle;
  };

  struct HandlerResult {
    std::shared_ptr<CBuf> reply;
    std::string failure;  // why the handler failed; otherwise empty
  };

  HANDLE BeginUse(std::size_t receptions);
  void EndUse();
  void CloseIfUnused() FENLUX_REQUIRES(mutex);

  void RunDelivery();
  void PostReceive(Slot& slot);
  void CancelUntilClosed();
  void StopThreadsIfIdle();
  void HandleMessage(Slot& slot, std::size_t size);
  HandlerResult CallHandler(const void* message, std::uint32_t size) const;
  void SendUnjudgedReply(Slot& slot, std::uint64_t messageId, const std::string& failure);
  HRESULT SendReply(Slot& slot, std::uint64_t messageId, const std::uint8_t* bytes, std::size_t size);

  const std::shared_ptr<FilterPortState> state;
  const PortRequest request;
  // Both are set before the delivery threads start and do not change afterwards.
  std::vector<std::unique_ptr<Slot>> slots;
  Handle queue;

  Mutex mutex;
  std::condition_variable changed;  // ended, or the handle was closed
  Handle port FENLUX_GUARDED_BY(mutex);
  std::size_t uses FENLUX_GUARDED_BY(mutex) = 0;
  std::size_t outstanding FENLUX_GUARDED_BY(mutex) = 0;
  bool connecting FENLUX_GUARDED_BY(mutex) = false;
  bool started FENLUX_GUARDED_BY(mutex) = false;
  bool ended FENLUX_GUARDED_BY(mutex) = false;
};

}  // namespace fenlux::refhost
