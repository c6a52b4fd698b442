// Passes the directories to watch and the watchdog's rounds from the driver to the event source.
#pragma once

#include <memory>
#include <utility>
#include <vector>

#include "common/mutex.h"
#include "common/thread_annotations.h"
#include "refhost/emulator/driver/shared/driver_model.h"
#include "refhost/emulator/driver/shared/event_source.h"

namespace fenlux::refhost {

// Any thread. The source's methods are called outside the lock.
class SourceLink {
 public:
  void Attach(std::shared_ptr<EventSource> eventSource) {
    const MutexLock lock(mutex);
    source = std::move(eventSource);
  }
  void Detach() { Attach(nullptr); }

  // Hands the set of directories to watch to the source, if one is attached.
  void UpdateWatch(DriverModel& model) {
    const std::shared_ptr<EventSource> attached = Attached();
    if (attached == nullptr) return;
    const WatchSet watch = model.TakeWatchSet();
    attached->Watch(watch.revision, watch.directories);
  }
  // See EventSource; empty if no source is attached.
  std::vector<WatchState> Watches() {
    const std::shared_ptr<EventSource> attached = Attached();
    return attached == nullptr ? std::vector<WatchState>() : attached->Watches();
  }
  // Whether the source has more to do right away.
  bool OnWatchdog() {
    const std::shared_ptr<EventSource> attached = Attached();
    return attached != nullptr && attached->OnWatchdog();
  }

 private:
  std::shared_ptr<EventSource> Attached() {
    const MutexLock lock(mutex);
    return source;
  }

  Mutex mutex;
  std::shared_ptr<EventSource> source FENLUX_GUARDED_BY(mutex);
};

}  // namespace fenlux::refhost
