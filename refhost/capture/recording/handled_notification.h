// The notification that the current thread is handling, so that its judgement is recorded with it.
#pragma once

#include <cstdint>

namespace fenlux::capture {

struct HandledNotification {
  std::uint32_t connection = 0;
  std::uint64_t exchange = 0;  // 0: none
};

// The notification that this thread is handling for the recorder whose state is `recorder`.
HandledNotification HandledBy(const void* recorder);

// Marks a notification as handled by this thread for the scope's lifetime. Scopes may nest.
class HandlingScope {
 public:
  HandlingScope(const void* recorder, HandledNotification notification);
  ~HandlingScope();
  HandlingScope(const HandlingScope&) = delete;
  HandlingScope& operator=(const HandlingScope&) = delete;

 private:
  const void* const previousRecorder;
  const HandledNotification previous;
};

}  // namespace fenlux::capture
