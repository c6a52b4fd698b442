// The watchdog: releases operations whose reply is not taken by the deadline.
//
// Ownership: owns its thread, and none of the state that the thread works on. PendingAnswers::TakeOverdue takes
// overdue answers from the delivery threads: it counts each notification as late and releases its operation.
#pragma once

#include <chrono>
#include <condition_variable>
#include <thread>

#include "common/mutex.h"
#include "common/thread_annotations.h"
#include "refhost/emulator/driver/pending_answers.h"
#include "refhost/emulator/driver/shared/source_link.h"

namespace fenlux::refhost {

// One thread at a time.
class Watchdog {
 public:
  Watchdog(std::chrono::milliseconds replyDeadline, PendingAnswers& pendingAnswers, SourceLink& sourceLink)
      : deadline(replyDeadline), answers(pendingAnswers), source(sourceLink) {}
  ~Watchdog() { Stop(); }
  Watchdog(const Watchdog&) = delete;
  Watchdog& operator=(const Watchdog&) = delete;

  // Once. Throws std::runtime_error if no thread can be started.
  void Start();
  // Ends the thread, if it was started.
  void Stop();

 private:
  void Run();

  const std::chrono::milliseconds deadline;
  PendingAnswers& answers;
  SourceLink& source;
  Mutex mutex;
  std::condition_variable wake;
  bool stopping FENLUX_GUARDED_BY(mutex) = false;
  std::thread thread;
};

}  // namespace fenlux::refhost
