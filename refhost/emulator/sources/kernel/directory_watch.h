// Keeps the kernel's marks equal to the directories that the settings and the module select.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <vector>

#include "common/mutex.h"
#include "common/thread_annotations.h"
#include "refhost/base/live_value.h"
#include "refhost/emulator/driver/shared/hook_caller.h"
#include "refhost/emulator/emulator_settings.h"
#include "refhost/emulator/sources/kernel/fanotify_marks.h"

namespace fenlux::refhost {

// Any thread.
class DirectoryWatch {
 public:
  // `groupDescriptor`, `kernelSettings`, `eventPaths` and `hookCaller` are borrowed and outlive this.
  DirectoryWatch(int groupDescriptor, const KernelEventSettings& kernelSettings, EventPaths& eventPaths,
                 HookCaller& hookCaller);

  // Watches the directories of the settings and, if these follow the policy, `directories`. See EventSource::Watch.
  // Throws std::bad_alloc without having changed anything. If memory runs out later, the next Renew completes it.
  void Set(std::uint64_t newRevision, const std::vector<std::string>& directories);
  // Marks the directories that the names lead to now. Call it periodically.
  void Renew();
  // See EventSource::Watches.
  std::vector<WatchState> States() const { return *states.Get(); }
  // Stops watching permanently. Does not wait for other calls: a file system may block them.
  void Stop();

 private:
  FanotifyMarks::Change UpdateMarks() FENLUX_REQUIRES(mutex);
  void LogChange(const FanotifyMarks::Change& change, EmulatorLogLevel level, const char* added);
  void LogEach(EmulatorLogLevel level, const char* text, const std::vector<std::string>& lines);

  const int group;
  const KernelEventSettings& settings;
  HookCaller& hooks;
  std::atomic<bool> stopping{false};

  Mutex mutex;
  FanotifyMarks marks FENLUX_GUARDED_BY(mutex);
  std::uint64_t revision FENLUX_GUARDED_BY(mutex) = 0;
  std::vector<std::string> wanted FENLUX_GUARDED_BY(mutex);  // of that revision
  bool marksOutdated FENLUX_GUARDED_BY(mutex) = false;       // the marks do not match `wanted` yet
  LiveValue<std::vector<WatchState>> states{std::vector<WatchState>()};
};

}  // namespace fenlux::refhost
