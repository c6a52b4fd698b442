// Repeats the recording host's calls to the module, each on its own thread.
#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "common/mutex.h"
#include "refhost/app/control/control_arguments.h"

namespace fenlux::refhost {

class HostContext;

// One thread.
class HostCalls {
 public:
  explicit HostCalls(std::shared_ptr<HostContext> hostContext) : context(std::move(hostContext)) {}

  // Begins the operation, with the name and arguments that `ctl` uses. Ignores what it returns or throws, which is not
  // in the capture. Returns false if there is no such operation.
  bool Begin(const std::string& operation, const ControlArguments& arguments);
  // How long to wait for calls.
  struct SettleOptions {
    std::function<bool(std::thread::id thread)> isWaiting;  // whether the thread waits for the driver
    std::function<bool()> mayBlock;            // whether a thread waits for the driver and may block other calls
    std::chrono::milliseconds blockedTimeout;  // while mayBlock says so
    std::chrono::milliseconds timeout;         // in any case
  };
  // Waits until every call has returned or waits for the driver, or a limit passes.
  void Settle(const SettleOptions& options);
  // Whether a call has not returned.
  bool Running();

 private:
  struct Call {
    std::thread::id thread;
    Mutex mutex;
    std::condition_variable changed;
    bool done FENLUX_GUARDED_BY(mutex) = false;
  };
  void RemoveDone();

  const std::shared_ptr<HostContext> context;
  std::vector<std::shared_ptr<Call>> calls;
};

}  // namespace fenlux::refhost
