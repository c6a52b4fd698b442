// The delivery threads, and how they wait for the player.
#include "refhost/app/replay/delivery_crew.h"

#include <utility>

#include "host/buf.h"
#include "refhost/base/exception_text.h"
#include "refhost/base/start_thread.h"

namespace fenlux::refhost {
namespace {

using Clock = std::chrono::steady_clock;

thread_local PlayedDelivery* currentDelivery = nullptr;

}  // namespace

PlayedDelivery* PlayedDelivery::Current() { return currentDelivery; }

void PlayedDelivery::Run() {
  currentDelivery = this;
  try {
    const std::shared_ptr<CBuf> answer = handler(message.data(), static_cast<std::uint32_t>(message.size()));
    if (answer != nullptr && answer->GetData() != nullptr) {
      reply.assign(answer->GetData(), answer->GetData() + answer->GetSize());
    }
  } catch (...) {
    failure = CurrentExceptionText();
  }
  currentDelivery = nullptr;
  const MutexLock lock(mutex);
  done = true;
  changed.notify_all();
}

PlayedJudgement PlayedDelivery::AwaitJudgement() {
  MutexLock lock(mutex);
  asked = true;
  changed.notify_all();
  while (!judgement) lock.Wait(changed);
  return *judgement;
}

bool PlayedDelivery::AwaitProgress(std::chrono::milliseconds limit) {
  const auto deadline = Clock::now() + limit;
  MutexLock lock(mutex);
  while (!asked && !done && lock.WaitUntil(changed, deadline)) {
  }
  return asked || done;
}

void PlayedDelivery::Judge(PlayedJudgement played) {
  const MutexLock lock(mutex);
  judgement = std::move(played);
  changed.notify_all();
}

bool PlayedDelivery::AwaitReply(std::chrono::milliseconds limit) {
  const auto deadline = Clock::now() + limit;
  MutexLock lock(mutex);
  while (!done && lock.WaitUntil(changed, deadline)) {
  }
  return done;
}

void DeliveryCrew::Begin(std::shared_ptr<PlayedDelivery> delivery) {
  bool more = false;
  {
    const MutexLock lock(shared->mutex);
    shared->waiting.push_back(std::move(delivery));
    more = shared->idle < shared->waiting.size();
  }
  shared->changed.notify_one();
  if (more) StartDetachedThread("deliveries", [shared = shared] { Serve(shared); });
}

void DeliveryCrew::Serve(const std::shared_ptr<Shared>& shared) {
  for (;;) {
    std::shared_ptr<PlayedDelivery> delivery;
    {
      MutexLock lock(shared->mutex);
      ++shared->idle;
      while (shared->waiting.empty()) lock.Wait(shared->changed);
      --shared->idle;
      delivery = std::move(shared->waiting.front());
      shared->waiting.pop_front();
    }
    delivery->Run();
  }
}

}  // namespace fenlux::refhost
