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
#include "refhost/services/filter_functions_win.h"
#include "refhost/services/filter_port_client.h"
#include "refhost/services/handle_win.h"

namespace fenlux::refhost {

// What all connections share.
class FilterBoard {
 public:
  FilterBoard(FilterFunctions functions, FilterPortSettings settings, FilterPort::LogHook log)
      : functions_(functions), settings_(std::move(settings)), log_(std::move(log)) {}

  const FilterFunctions& Functions() const { return functions_; }
  const FilterPortSettings& Settings() const { return settings_; }
  void Log(Severity severity, const std::string& line) const {
    if (log_) log_(severity, "[driver port] " + line);
  }

  void Count(std::uint64_t FilterPortTotals::*count) {
    const std::lock_guard lock(mutex_);
    ++(totals_.*count);
  }
  void CountReceived() {
    const std::lock_guard lock(mutex_);
    ++totals_.received;
    ++totals_.inFlight;
  }
  // What became of a received message.
  void CountOutcome(std::uint64_t FilterPortTotals::*count) {
    const std::lock_guard lock(mutex_);
    ++(totals_.*count);
    --totals_.inFlight;
  }
  FilterPortTotals Totals() const {
    const std::lock_guard lock(mutex_);
    return totals_;
  }

  void Stop() {
    const std::lock_guard lock(mutex_);
    stopped_ = true;
  }
  bool Stopped() const {
    const std::lock_guard lock(mutex_);
    return stopped_;
  }

 private:
  const FilterFunctions functions_;
  const FilterPortSettings settings_;
  const FilterPort::LogHook log_;
  mutable std::mutex mutex_;  // over everything below
  FilterPortTotals totals_;
  bool stopped_ = false;
};

// What the module asked for when it had the port client made.
struct PortWish {
  std::string portName;
  std::shared_ptr<CBuf> connectContext;
  std::uint32_t maxMessageSize = 0;
  NotificationHandler handler;
};

class FilterConnection : public std::enable_shared_from_this<FilterConnection> {
 public:
  FilterConnection(std::shared_ptr<FilterBoard> board, PortWish wish)
      : board_(std::move(board)), wish_(std::move(wish)) {}
  FilterConnection(const FilterConnection&) = delete;
  FilterConnection& operator=(const FilterConnection&) = delete;

  void Connect();
  void Start();
  void Send(CBuf& request, CBuf* reply);
  void WaitEnded() {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return ended_; });
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
    explicit Use(FilterConnection& connection, std::size_t receptions = 0)
        : connection_(connection), handle_(connection.BeginUse(receptions)) {}
    ~Use() {
      if (handle_ != nullptr) connection_.EndUse();
    }
    Use(const Use&) = delete;
    Use& operator=(const Use&) = delete;
    explicit operator bool() const { return handle_ != nullptr; }
    HANDLE Get() const { return handle_; }

   private:
    FilterConnection& connection_;
    const HANDLE handle_;
  };

  HANDLE BeginUse(std::size_t receptions) {
    const std::lock_guard lock(mutex_);
    if (ended_ || !port_.Valid()) return nullptr;
    ++uses_;
    outstanding_ += receptions;
    return port_.Get();
  }
  void EndUse() {
    const std::lock_guard lock(mutex_);
    --uses_;
    CloseIfUnused();
  }
  // With the lock held.
  void CloseIfUnused() {
    if (!ended_ || uses_ > 0 || !port_.Valid()) return;
    ::CancelIoEx(port_.Get(), nullptr);
    port_.Reset();
    changed_.notify_all();
  }

  void Deliver();
  void Receive(Slot& slot);
  void CancelUntilUnused();
  void Retire();
  void Judge(Slot& slot, std::size_t size);
  std::shared_ptr<CBuf> Ask(const void* message, std::uint32_t size, std::string& failure) const;
  HRESULT Answer(Slot& slot, std::uint64_t messageId, const std::uint8_t* bytes, std::size_t size);

  const std::shared_ptr<FilterBoard> board_;
  const PortWish wish_;
  std::vector<std::unique_ptr<Slot>> slots_;  // fixed before the threads are started
  Handle queue_;                              // likewise

  std::mutex mutex_;                 // over everything below
  std::condition_variable changed_;  // ended, or closed
  Handle port_;
  std::size_t uses_ = 0;
  std::size_t outstanding_ = 0;
  bool connecting_ = false;
  bool started_ = false;
  bool ended_ = false;
};

}  // namespace fenlux::refhost
