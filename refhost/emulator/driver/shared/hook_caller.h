// Calls the host's hooks until the emulator has stopped.
#pragma once

#include <new>
#include <string>
#include <utility>

#include "common/mutex.h"
#include "common/thread_annotations.h"
#include "refhost/emulator/emulator_hooks.h"

namespace fenlux::refhost {

// Any thread. If memory runs out, a call is lost.
class HookCaller {
 public:
  explicit HookCaller(EmulatorHooks hostHooks) : hooks(std::move(hostHooks)) {}

  void Log(EmulatorLogLevel level, const std::string& line) {
    const MutexLock lock(mutex);
    try {
      if (hooks.log) hooks.log(level, line);
    } catch (const std::bad_alloc&) {
    }
  }
  void ReportScenarioFinished() {
    const MutexLock lock(mutex);
    try {
      if (hooks.scenarioFinished) hooks.scenarioFinished();
    } catch (const std::bad_alloc&) {
    }
  }
  // No hook is called after this returns.
  void Release() {
    const MutexLock lock(mutex);
    hooks = {};
  }

 private:
  Mutex mutex;
  EmulatorHooks hooks FENLUX_GUARDED_BY(mutex);
};

}  // namespace fenlux::refhost
