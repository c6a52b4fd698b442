// Each thread notes its end, so that those that have ended are joined and the others can be left.
#include "refhost/emulator/thread_crew.h"

#include <algorithm>
#include <condition_variable>
#include <mutex>
#include <utility>

namespace fenlux::refhost {

struct ThreadCrew::Shared {
  std::mutex mutex;
  std::condition_variable ended;
  std::vector<std::thread::id> endedIds;
};

ThreadCrew::ThreadCrew() : shared(std::make_shared<Shared>()) {}

ThreadCrew::~ThreadCrew() { Join(std::chrono::milliseconds(0)); }

void ThreadCrew::Add(std::function<void()> body) {
  threads.emplace_back([shared = shared, body = std::move(body)]() mutable {
    body();
    body = nullptr;
    const std::lock_guard lock(shared->mutex);
    shared->endedIds.push_back(std::this_thread::get_id());
    shared->ended.notify_all();
  });
}

bool ThreadCrew::Join(std::chrono::milliseconds limit) {
  std::vector<std::thread::id> ended;
  {
    std::unique_lock lock(shared->mutex);
    shared->ended.wait_for(lock, limit, [this] { return shared->endedIds.size() == threads.size(); });
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
