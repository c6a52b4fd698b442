// Calls the host's hooks until the emulator has stopped.
#pragma once

#include <string>
#include <utility>

#include "common/mutex.h"
#include "common/thread_annotations.h"
#include "refhost/emulator/emulator_hooks.h"

namespace fenlux::refhost {

// Any thread.
class HookCaller {
 public:
  explicit HookCaller(EmulatorHooks hostHooks) : hooks(std::move(hostHooks)) {}

  void Log(EmulatorLogLevel level, const std::string& line) {
    const MutexLock lock(mutex);
    if (hooks.log) hooks.log(level, line);
  }
  void ReportScenarioFinished() {
    const MutexLock lock(mutex);
    if (hooks.scenarioFinished) hooks.scenarioFinished();
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
