// What the emulator reports to its host.
#pragma once

#include <functional>
#include <memory>
#include <string>

namespace fenlux::refhost {

class DecisionSink;

enum class EmulatorLogLevel { kDetail, kEvent, kWarning, kProblem };

// Each function may be empty. The emulator calls them on its own and the module's threads, one call at a time; they
// must not block or call the emulator back, and may throw only std::bad_alloc, which loses the call. None is called
// after Stop has returned.
struct EmulatorHooks {
  std::function<void(EmulatorLogLevel level, const std::string& line)> log;
  std::function<void()> scenarioFinished;
  // Gets a record of every judged event; may be null. Used on the delivery threads, several at a time, and also by one
  // that outlasts Stop.
  std::shared_ptr<DecisionSink> decisions;
};

}  // namespace fenlux::refhost
