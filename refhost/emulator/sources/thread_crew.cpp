// Each thread reports its end, so that Join can join those that have ended and leave the others behind.
#include "refhost/emulator/sources/thread_crew.h"

#include <algorithm>
#include <condition_variable>
#include <utility>

#include "common/mutex.h"
#include "common/thread_annotations.h"
#include "refhost/base/start_thread.h"

namespace fenlux::refhost {

struct ThreadCrew::Shared {
  Mutex mutex;
  std::condition_variable ended;
  std::vector<std::thread::id> endedIds FENLUX_GUARDED_BY(mutex);
};

ThreadCrew::ThreadCrew() : shared(std::make_shared<Shared>()) {}

ThreadCrew::~ThreadCrew() { Join(std::chrono::milliseconds(0)); }

void ThreadCrew::Add(std::string_view name, std::function<void()> body) {
  threads.reserve(threads.size() + 1);
  {
    const MutexLock lock(shared->mutex);
    shared->endedIds.reserve(threads.size() + 1);  // the end of a thread needs no memory
  }
  threads.push_back(StartThread(name, [shared = shared, body = std::move(body)]() mutable {
    body();
    body = nullptr;
    const MutexLock lock(shared->mutex);
    shared->endedIds.push_back(std::this_thread::get_id());
    shared->ended.notify_all();
  }));
}

bool ThreadCrew::Join(std::chrono::milliseconds limit) {
  const auto deadline = std::chrono::steady_clock::now() + limit;
  std::vector<std::thread::id> ended;
  {
    MutexLock lock(shared->mutex);
    while (shared->endedIds.size() < threads.size() && lock.WaitUntil(shared->ended, deadline)) {
    }
    ended.swap(shared->endedIds);
  }
  bool all = true;
  for (std::thread& thread : threads) {
    if (std::find(ended.begin(), ended.end(), thread.get_id()) != ended.end()) {
      thread.join();
    } else {
      thread.detach();
      all = false;
    }
  }
  threads.clear();
  shared = std::make_shared<Shared>();
  return all;
}

}  // namespace fenlux::refhost
