// Client of the driver's communication port: one per connection.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>

namespace fenlux {

class CBuf;

// Handles one message of the driver and returns the reply to send, or an empty handle if no reply is to be sent.
// `message` has `size` bytes and must be valid during the call. Until the handler returns, the module owes the driver
// the reply; from then on the port client does, also if the handler throws, which it does only if the reply buffer
// cannot be made. Holds the driver interface weakly: may be called or destroyed at any time, even after the module has
// released the port client. Delivery threads, concurrently.
using NotificationHandler = std::function<std::shared_ptr<CBuf>(const void* message, std::uint32_t size)>;

// One connection with the driver, made by CWinWork::CreatePortClient and used once: Connect, Start, then Wait until it
// ends. "The port client" in docs/embedding.md lists its duties.
class CPortClient {
 public:
  // Opens the connection and passes the connect context to the driver. Throws if the driver refuses. Connection worker,
  // once, before Start.
  virtual void Connect() = 0;
  // Starts passing messages to the handler and sending its replies to the driver. Returns at once. Connection worker,
  // once, after Connect.
  virtual void Start() = 0;
  // Blocks until the connection ends: the driver ends it, or Close is called. Connection worker.
  virtual void Wait() = 0;
  // Closes the connection for good: current and future calls to Wait return. May be called before Connect, more than
  // once, and concurrently with any other method. Must not wait for a running handler call. Any thread.
  virtual void Close() = 0;
  // Sends `request`, the whole buffer, to the driver and returns when the driver has taken it. If `reply` is non-null,
  // receives the driver's answer, either in the given buffer or in a new one; leaves the buffer as it is if the driver
  // gives none. If it is null, no answer is expected. The module passes true as `flag`, which has no meaning. Does not
  // keep `request` after returning. Throws if the request cannot be sent or the driver rejects it. Any thread,
  // concurrently.
  virtual void Send(const std::shared_ptr<CBuf>& request, std::shared_ptr<CBuf>& reply, bool flag) = 0;

 protected:
  ~CPortClient() = default;
};

}  // namespace fenlux
