// The queue between the callers and the writer thread, which may block on a reader.
#include "refhost/app/bounded_output.h"

#include <condition_variable>

#include "common/mutex.h"
#include "common/thread_annotations.h"
#include "refhost/base/platform/error_text.h"
#include "refhost/base/start_thread.h"

namespace fenlux::refhost {

// Shared with the writer thread, which may stay blocked in the stream and outlive the object.
struct BoundedOutput::Shared {
  explicit Shared(std::ostream& output) : stream(output) {}

  void Run() {
    std::string taken;
    for (;;) {
      {
        MutexLock lock(mutex);
        writing = 0;
        changed.notify_all();
        while (!ended && waiting.empty()) lock.Wait(changed);
        if (waiting.empty()) return;
        taken.swap(waiting);
        waiting.clear();
        writing = taken.size();
      }
      stream << taken << std::flush;
      if (!stream) {
        std::string reason = LastErrorText();
        const MutexLock lock(mutex);
        failure = std::move(reason);
      }
      stream.clear();  // a failed write must not prevent later ones
    }
  }

  std::ostream& stream;
  Mutex mutex;
  std::condition_variable changed;
  std::string waiting FENLUX_GUARDED_BY(mutex);
  std::size_t writing FENLUX_GUARDED_BY(mutex) = 0;  // bytes that the writer has taken but not finished
  bool ended FENLUX_GUARDED_BY(mutex) = false;
  std::string failure FENLUX_GUARDED_BY(mutex);  // of the last write that failed
};

BoundedOutput::BoundedOutput(std::ostream& stream, const std::string& name) : shared(std::make_shared<Shared>(stream)) {
  StartDetachedThread(name, [shared = shared] { shared->Run(); });
}

BoundedOutput::~BoundedOutput() {
  const MutexLock lock(shared->mutex);
  shared->ended = true;
  shared->changed.notify_all();
}

bool BoundedOutput::Write(const std::string& text) {
  const MutexLock lock(shared->mutex);
  if (shared->waiting.size() + shared->writing + text.size() > kMaxBytes) return false;
  shared->waiting += text;
  shared->changed.notify_all();
  return true;
}

bool BoundedOutput::Flush(std::chrono::milliseconds limit) {
  const auto deadline = std::chrono::steady_clock::now() + limit;
  MutexLock lock(shared->mutex);
  while (!shared->waiting.empty() || shared->writing > 0) {
    if (!lock.WaitUntil(shared->changed, deadline)) return shared->waiting.empty() && shared->writing == 0;
  }
  return true;
}

std::string BoundedOutput::Failure() const {
  const MutexLock lock(shared->mutex);
  return shared->failure;
}

}  // namespace fenlux::refhost
