// Notifications of a replay. Each is delivered to the module on its own thread, as by a driver, and judged as in the
// capture.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <list>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "common/mutex.h"
#include "host/ao_arp.h"
#include "host/port_client.h"

namespace fenlux::refhost {

// The answer to the module's request for a judgement.
struct PlayedJudgement {
  std::uint32_t decision = static_cast<std::uint32_t>(Decision::kPass);
  std::vector<std::uint8_t> context;  // context data for Decision::kContext
};

// One notification from its delivery to the module's reply. Any thread.
class PlayedDelivery {
 public:
  PlayedDelivery(NotificationHandler notificationHandler, std::vector<std::uint8_t> notification)
      : handler(std::move(notificationHandler)), message(std::move(notification)) {}

  // The delivery thread: calls the module.
  void Run();
  // The delivery thread, in the module's call: waits for the judgement.
  PlayedJudgement AwaitJudgement();
  // The delivery that the current thread runs; null if it runs none.
  static PlayedDelivery* Current();

  // The player: waits until the module asks for the judgement or has replied; false if neither happens in time.
  bool AwaitProgress(std::chrono::milliseconds limit);
  void Judge(PlayedJudgement played);
  // The player: waits for the module's reply; false if there is none in time.
  bool AwaitReply(std::chrono::milliseconds limit);
  // Valid after AwaitReply returned true. Reply is empty if there is none, Failure if the module did not fail.
  const std::vector<std::uint8_t>& Reply() const { return reply; }
  const std::string& Failure() const { return failure; }

 private:
  const NotificationHandler handler;
  const std::vector<std::uint8_t> message;
  // Written before `done` is set, read after that.
  std::vector<std::uint8_t> reply;
  std::string failure;

  Mutex mutex;
  std::condition_variable changed;
  bool asked FENLUX_GUARDED_BY(mutex) = false;
  bool done FENLUX_GUARDED_BY(mutex) = false;
  std::optional<PlayedJudgement> judgement FENLUX_GUARDED_BY(mutex);
};

// The delivery threads: one for each notification that is being delivered. They are never joined, because a module may
// block one forever.
class DeliveryCrew {
 public:
  // Gives the delivery to a thread. Throws std::runtime_error if none can be started.
  void Begin(std::shared_ptr<PlayedDelivery> delivery);

 private:
  struct Shared {
    Mutex mutex;
    std::condition_variable changed;
    std::list<std::shared_ptr<PlayedDelivery>> waiting FENLUX_GUARDED_BY(mutex);
    std::size_t idle FENLUX_GUARDED_BY(mutex) = 0;
  };
  [[noreturn]] static void Serve(const std::shared_ptr<Shared>& shared);

  const std::shared_ptr<Shared> shared = std::make_shared<Shared>();
};

}  // namespace fenlux::refhost
