// The polling thread is never joined: the process ends without destroying the host.
#include "refhost/app/commands/host_polling.h"

#include <new>
#include <thread>
#include <utility>

#include "refhost/base/start_thread.h"

namespace fenlux::refhost {

void StartPolling(std::function<void()> poll) {
  StartDetachedThread("the policy's watch", [poll = std::move(poll)] {
    for (;;) {
      try {
        poll();
      } catch (const std::bad_alloc&) {
      }
      std::this_thread::sleep_for(kPollInterval);
    }
  });
}

}  // namespace fenlux::refhost
