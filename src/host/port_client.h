// The host's client of the driver's communication port: one per connection.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>

namespace fenlux {

class CBuf;

// Called by a port client for every message of the driver, on its delivery threads, several at once. `message` holds
// `size` bytes and belongs to the caller; it need live only for the call. The returned buffer is the reply to send; an
// empty one means that no reply is sent. Until the handler has returned, the duty to answer the driver is the
// module's; from then on it is the port client's. The handler throws only where the reply's buffer cannot be made; the
// port client then answers for itself. It holds the driver interface weakly and may be called, and dropped, at any
// time, also after the module has let go of the port client.
using NotificationHandler = std::function<std::shared_ptr<CBuf>(const void* message, std::uint32_t size)>;

class CPortClient {
 public:
  // Opens the connection and passes the connect context to the driver. Throws where the driver refuses. Connection
  // worker, once, before Start.
  virtual void Connect() = 0;
  // Begins the delivery of messages to the handler; replies that are not empty go back to the driver. Connection
  // worker, once, after Connect.
  virtual void Start() = 0;
  // Blocks until the connection ends: the driver went away, or Close was called. Connection worker.
  virtual void Wait() = 0;
  // Ends the connection. Final: after it, whatever was called before or comes later, every Wait returns. It may come
  // before Connect, twice, and while Connect, Start, Wait or Send run on other threads; it must not wait for a handler
  // call to return. Any thread.
  virtual void Close() = 0;
  // Sends `request` to the driver and puts the driver's answer into `reply`: the buffer that `reply` holds may be
  // filled or replaced; an empty handle means that the caller wants no answer. The module passes true as `flag`. The
  // request belongs to the caller again when the call returns. Throws where it could not be sent. Any thread, several
  // at once.
  virtual void Send(const std::shared_ptr<CBuf>& request, std::shared_ptr<CBuf>& reply, bool flag) = 0;

 protected:
  ~CPortClient() = default;
};

}  // namespace fenlux
