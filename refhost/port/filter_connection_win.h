// A connection with a filter driver, from its opening to its end.
//
// A connection is one object, shared by the port client that the module holds and by the delivery threads. It owns the
// port's handle, the queue where finished receptions arrive, and the message buffers. The handle is never closed under
// a call that uses it, and Close never waits for one: every use is counted, and whoever ends last, Close or the last
// use, closes it. So that no use lasts, calls that the driver holds are cancelled; the delivery threads repeat that
// until the handle is closed, for calls that were only on their way to the driver. A handler that runs is no use: it
// can take as long as it likes, and its reply then finds the port closed.
//
// A buffer is always in one of three places: with the Filter Manager (counted as outstanding), with a delivery thread,
// or at rest because the connection has ended. The Filter Manager gives back every outstanding one when the port ends,
// so the threads end when none is left and the handle is closed.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "host/port_client.h"
#include "refhost/base/platform/handle_win.h"
#include "refhost/port/filter_functions_win.h"
#include "refhost/port/filter_port_client.h"
#include "refhost/port/port_request.h"

namespace fenlux::refhost {

// What all connections share.
class FilterBoard {
 public:
  FilterBoard(FilterFunctions filterFunctions, FilterPortSettings portSettings, FilterPort::LogHook logHook)
      : functions(filterFunctions), settings(std::move(portSettings)), log(std::move(logHook)) {}

  const FilterFunctions& Functions() const { return functions; }
  const FilterPortSettings& Settings() const { return settings; }
  void Log(Severity severity, const std::string& line) const {
    if (log) log(severity, "[driver port] " + line);
  }

  void Count(std::uint64_t FilterPortTotals::*count) {
    const std::lock_guard lock(mutex);
    ++(totals.*count);
  }
  void CountReceived() {
    const std::lock_guard lock(mutex);
    ++totals.received;
    ++totals.inFlight;
  }
  // What became of a received message.
  void CountOutcome(std::uint64_t FilterPortTotals::*count) {
    const std::lock_guard lock(mutex);
    ++(totals.*count);
    --totals.inFlight;
  }
  FilterPortTotals Totals() const {
    const std::lock_guard lock(mutex);
    return totals;
  }

  void Stop() {
    const std::lock_guard lock(mutex);
    stopped = true;
  }
  bool Stopped() const {
    const std::lock_guard lock(mutex);
    return stopped;
  }

 private:
  const FilterFunctions functions;
  const FilterPortSettings settings;
  const FilterPort::LogHook log;
  mutable std::mutex mutex;  // over everything below
  FilterPortTotals totals;
  bool stopped = false;
};

class FilterConnection : public std::enable_shared_from_this<FilterConnection> {
 public:
  FilterConnection(std::shared_ptr<FilterBoard> sharedBoard, PortRequest portRequest)
      : board(std::move(sharedBoard)), request(std::move(portRequest)) {}
  FilterConnection(const FilterConnection&) = delete;
  FilterConnection& operator=(const FilterConnection&) = delete;

  void Connect();
  void Start();
  void Send(CBuf& message, CBuf* reply);
  void WaitEnded() {
    std::unique_lock lock(mutex);
    changed.wait(lock, [this] { return ended; });
  }
  // The first reason is the one that is logged.
  void End(const std::string& reason);

 private:
  // One message buffer: the operation that fills it, the message behind its header, and room for the reply.
  struct Slot {
    OVERLAPPED operation{};  // first: the queue gives back its address
    std::vector<std::uint8_t> message;
    std::vector<std::uint8_t> reply;
  };
  static_assert(offsetof(Slot, operation) == 0);

  // The right to use the port's handle; without it the port is not open.
  class Use {
   public:
    // `receptions` is how many buffers are handed over by it.
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

  HANDLE BeginUse(std::size_t receptions) {
    const std::lock_guard lock(mutex);
    if (ended || !port.Valid()) return nullptr;
    ++uses;
    outstanding += receptions;
    return port.Get();
  }
  void EndUse() {
    const std::lock_guard lock(mutex);
    --uses;
    CloseIfUnused();
  }
  // With the lock held.
  void CloseIfUnused() {
    if (!ended || uses > 0 || !port.Valid()) return;
    ::CancelIoEx(port.Get(), nullptr);
    port.Reset();
    changed.notify_all();
  }

  void Deliver();
  void Receive(Slot& slot);
  void CancelUntilUnused();
  void Retire();
  void Judge(Slot& slot, std::size_t size);
  std::shared_ptr<CBuf> Ask(const void* message, std::uint32_t size, std::string& failure) const;
  HRESULT Answer(Slot& slot, std::uint64_t messageId, const std::uint8_t* bytes, std::size_t size);

  const std::shared_ptr<FilterBoard> board;
  const PortRequest request;
  std::vector<std::unique_ptr<Slot>> slots;  // fixed before the threads are started
  Handle queue;                              // likewise

  std::mutex mutex;                 // over everything below
  std::condition_variable changed;  // ended, or closed
  Handle port;
  std::size_t uses = 0;
  std::size_t outstanding = 0;
  bool connecting = false;
  bool started = false;
  bool ended = false;
};

}  // namespace fenlux::refhost
