// One port that the module opens: its parameters and its state. A port that has ended is never reopened.
//
// Locks: budgetMutex is taken before the lock of a slot (pending_answers.h), and after connectMutex
// (driver_connections.h).
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>

#include "common/mutex.h"
#include "host/buf.h"
#include "host/port_client.h"
#include "refhost/port/port_request.h"

namespace fenlux::refhost {

inline constexpr char kPortClosed[] = "the driver's port is closed";

// Any thread.
class DriverPort {
 public:
  explicit DriverPort(PortRequest portRequest) : request(std::move(portRequest)) {}

  const PortRequest& Request() const { return request; }
  const NotificationHandler& Handler() const { return request.handler; }

  // The client type of the connect context; 0 until the connection is open.
  std::uint32_t ClientType() const { return clientType; }
  bool Connected() const { return ClientType() != 0; }
  // The number of the connection; 0 until it is open.
  std::uint64_t Connection() const { return connection; }
  void SetConnected(std::uint32_t type, std::uint64_t connectionNumber) {
    connection = connectionNumber;
    clientType = type;
  }

  // Marks that delivery begins; false if it had begun already.
  bool SetStarted() { return !started.exchange(true); }

  // Limits how many more notifications may be delivered; 0 and the initial state mean no limit.
  void LimitDeliveries(std::uint64_t count) {
    const MutexLock lock(budgetMutex);
    budget = count == 0 ? kUnlimited : static_cast<std::int64_t>(count);
  }
  // Whether a notification can be delivered now.
  bool Deliverable() const { return started && !Ended() && budget != 0; }
  enum class Place { kNone, kOneOfMany, kLast };
  // Calls `begin`, which begins a delivery or returns false. Returns kLast for the last delivery within the limit, and
  // kNone if the limit is used up or `begin` returned false. With a limit, calls of `begin` do not overlap: when one
  // delivery is the last, all others have begun.
  template <typename Begin>
  Place BeginDelivery(const Begin& begin) {
    if (budget == kUnlimited) return begin() ? Place::kOneOfMany : Place::kNone;
    const MutexLock lock(budgetMutex);
    const std::int64_t left = budget;
    if (left == 0 || !begin()) return Place::kNone;
    if (left != kUnlimited) budget = left - 1;
    return left == 1 ? Place::kLast : Place::kOneOfMany;
  }

  bool Ended() const { return ended; }
  // Ends the port and wakes every thread that waits for its end; false if it had ended already.
  bool MarkEnded() {
    {
      const MutexLock lock(mutex);
      if (ended.exchange(true)) return false;
    }
    endedChanged.notify_all();
    return true;
  }
  void WaitEnded() {
    MutexLock lock(mutex);
    while (!Ended()) lock.Wait(endedChanged);
  }
  // True if the port ended within `limit`.
  bool WaitEndedFor(std::chrono::milliseconds limit) {
    const auto deadline = std::chrono::steady_clock::now() + limit;
    MutexLock lock(mutex);
    while (!Ended() && lock.WaitUntil(endedChanged, deadline)) {
    }
    return Ended();
  }

 private:
  static constexpr std::int64_t kUnlimited = -1;

  const PortRequest request;
  std::atomic<std::uint64_t> connection{0};
  std::atomic<std::uint32_t> clientType{0};
  std::atomic<bool> started{false};
  std::atomic<bool> ended{false};
  Mutex budgetMutex;
  // Written under budgetMutex. Deliverable, and deliveries without a limit, read it without.
  std::atomic<std::int64_t> budget{kUnlimited};
  Mutex mutex;  // orders the end of the port and the waits for it
  std::condition_variable endedChanged;
};

}  // namespace fenlux::refhost
