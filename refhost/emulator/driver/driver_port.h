// One port that the module opened: what it was made with, how far it has come, and its end, which is final.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

#include "host/buf.h"
#include "host/port_client.h"
#include "refhost/port/port_request.h"

namespace fenlux::refhost {

// Any thread.
class DriverPort {
 public:
  explicit DriverPort(PortRequest portRequest) : request(std::move(portRequest)) {}

  const PortRequest& Request() const { return request; }
  const NotificationHandler& Handler() const { return request.handler; }

  // The client type of the connect context; 0 until the connection is open.
  std::uint32_t ClientType() const { return clientType; }
  bool Connected() const { return ClientType() != 0; }
  void SetConnected(std::uint32_t type) { clientType = type; }

  // Notes that delivery begins; false where it had begun before.
  bool SetStarted() { return !started.exchange(true); }

  // How many more notifications may be delivered; unlimited at first.
  void LimitDeliveries(std::uint64_t count) { budget = static_cast<std::int64_t>(count); }
  void UnlimitDeliveries() { budget = kUnlimited; }
  // Whether a notification can be delivered now.
  bool Deliverable() const { return started && !Ended() && budget != 0; }
  enum class Ticket { kNone, kOneOfMany, kLast };
  // Takes the right to deliver one notification.
  Ticket TakeTicket() {
    std::int64_t left = budget;
    while (left > 0) {
      if (budget.compare_exchange_weak(left, left - 1)) return left == 1 ? Ticket::kLast : Ticket::kOneOfMany;
    }
    return left == 0 ? Ticket::kNone : Ticket::kOneOfMany;
  }

  bool Ended() const { return ended; }
  // Ends the port and wakes everyone who waits for that; false where it had ended before.
  bool MarkEnded() {
    {
      const std::lock_guard lock(mutex);
      if (ended.exchange(true)) return false;
    }
    endedChanged.notify_all();
    return true;
  }
  void WaitEnded() {
    std::unique_lock lock(mutex);
    endedChanged.wait(lock, [this] { return Ended(); });
  }
  // True where the port ended in that time.
  bool WaitEndedFor(std::chrono::milliseconds limit) {
    std::unique_lock lock(mutex);
    return endedChanged.wait_for(lock, limit, [this] { return Ended(); });
  }

 private:
  static constexpr std::int64_t kUnlimited = -1;

  const PortRequest request;
  std::atomic<std::uint32_t> clientType{0};
  std::atomic<bool> started{false};
  std::atomic<bool> ended{false};
  std::atomic<std::int64_t> budget{kUnlimited};
  std::mutex mutex;
  std::condition_variable endedChanged;
};

}  // namespace fenlux::refhost
