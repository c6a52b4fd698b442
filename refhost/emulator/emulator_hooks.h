// What the emulator reports to its host.
#pragma once

#include <functional>
#include <memory>
#include <string>

namespace fenlux::refhost {

class DecisionSink;

enum class EmulatorLogLevel { kDetail, kEvent, kWarning, kProblem };

// Each function may be empty. The emulator calls them on its own threads and on the module's, one call at a time; they
// must not block or call back into the emulator, and may throw only std::bad_alloc, which is ignored. None is called
// after Stop has returned.
struct EmulatorHooks {
  std::function<void(EmulatorLogLevel level, const std::string& line)> log;
  std::function<void()> scenarioFinished;
  // Gets a record of every judged event; may be null. Used on the delivery threads, concurrently, and also by one
  // that outlasts Stop.
  std::shared_ptr<DecisionSink> decisions;
};

}  // namespace fenlux::refhost
