// A group of threads that are joined within a time limit, or left behind.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string_view>
#include <thread>
#include <vector>

namespace fenlux::refhost {

// Owned by one thread at a time. A body shares ownership of everything it touches, because it may be left behind.
class ThreadCrew {
 public:
  ThreadCrew();
  // Leaves behind the threads that are still running.
  ~ThreadCrew();
  ThreadCrew(const ThreadCrew&) = delete;
  ThreadCrew& operator=(const ThreadCrew&) = delete;

  // Starts a thread; the body must not throw. Throws std::runtime_error with the thread's name if it cannot be started.
  void Add(std::string_view name, std::function<void()> body);
  // Waits for the threads to end; returns whether all did. The others are left behind.
  bool Join(std::chrono::milliseconds limit);

 private:
  struct Shared;

  std::shared_ptr<Shared> shared;
  std::vector<std::thread> threads;
};

}  // namespace fenlux::refhost
