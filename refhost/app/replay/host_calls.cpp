// The operations are those of the control channel.
#include "refhost/app/replay/host_calls.h"

#include <nlohmann/json.hpp>
#include <utility>

#include "core/fenlux.h"
#include "refhost/app/control/control_operations.h"
#include "refhost/base/start_thread.h"
#include "refhost/services/host_context.h"

namespace fenlux::refhost {
namespace {

class Owner final : public ModuleOwner {
 public:
  explicit Owner(std::shared_ptr<HostContext> hostContext) : context(std::move(hostContext)) {}
  std::shared_ptr<CFenlux> Module() const override { return context->Module(); }

 private:
  const std::shared_ptr<HostContext> context;
};

}  // namespace

bool HostCalls::Begin(const std::string& operation, const ControlArguments& arguments) {
  const ControlOperation* const known = FindControlOperation(operation);
  if (known == nullptr || known->hostOnly) return false;
  const auto call = std::make_shared<Call>();
  call->thread = StartDetachedThread("a call of the host", [call, known, arguments, context = context] {
    try {
      Owner owner(context);
      known->run(owner, arguments);
    } catch (...) {  // ignored: the comparison shows the consequences
    }
    const MutexLock lock(call->mutex);
    call->done = true;
    call->changed.notify_all();
  });
  calls.push_back(call);
  return true;
}

void HostCalls::Settle(const SettleOptions& options) {
  constexpr std::chrono::milliseconds kPollInterval{5};
  const auto begin = std::chrono::steady_clock::now();
  auto blockedSince = begin;
  for (const std::shared_ptr<Call>& call : calls) {
    for (;;) {
      if (options.isWaiting(call->thread)) break;
      const bool mayBeBlocked = options.mayBlock();
      MutexLock lock(call->mutex);
      const auto now = std::chrono::steady_clock::now();
      if (!mayBeBlocked) blockedSince = now;
      if (call->done || now >= begin + options.timeout || now >= blockedSince + options.blockedTimeout) break;
      lock.WaitUntil(call->changed, now + kPollInterval);
    }
  }
  RemoveDone();
}

bool HostCalls::Running() {
  RemoveDone();
  return !calls.empty();
}

void HostCalls::RemoveDone() {
  std::erase_if(calls, [](const std::shared_ptr<Call>& call) {
    const MutexLock lock(call->mutex);
    return call->done;
  });
}

}  // namespace fenlux::refhost
