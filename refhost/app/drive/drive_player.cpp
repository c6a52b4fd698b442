// The module's calls run on their own threads, because a driver that does not answer can block them indefinitely.
#include "refhost/app/drive/drive_player.h"

#include <fmt/format.h>

#include <algorithm>
#include <future>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <utility>

#include "core/fenlux.h"
#include "kdi/kdi_base.h"
#include "refhost/app/control/control_operations.h"
#include "refhost/app/drive/drive_steps.h"
#include "refhost/app/recording/port_recording.h"
#include "refhost/app/reference_host.h"
#include "refhost/base/start_thread.h"

namespace fenlux::refhost {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr milliseconds kPollInterval{20};
// The module waits 5 seconds before it connects again.
constexpr milliseconds kReconnectPause{5'000};

class DrivePlayer {
 public:
  DrivePlayer(ReferenceHost& drivenHost, const DriveSettings& driveSettings,
              const std::function<bool(milliseconds)>& interruptibleSleep)
      : host(drivenHost), settings(driveSettings), sleep(interruptibleSleep) {}

  DriveOutcome Play() {
    outcome.connected = AwaitConnection(nullptr, settings.timeout) != nullptr;
    if (!outcome.connected) {
      Stop("no connection was ready");
    } else if (RunSteps(DriveSteps(settings.emulated))) {
      TakeNotifications();
      if (settings.reconnect) Reconnect();
    }
    outcome.replies = Replies();
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    outcome.end = static_cast<std::uint64_t>(std::chrono::nanoseconds(now).count());
    return std::move(outcome);
  }

 private:
  void Stop(std::string reason) {
    if (outcome.stopped.empty()) outcome.stopped = std::move(reason);
  }
  // Returns whether the condition became true in time.
  template <typename Condition>
  bool Await(const Condition& condition, milliseconds limit) {
    const auto deadline = Clock::now() + limit;
    while (!condition()) {
      const auto now = Clock::now();
      if (now >= deadline) return false;
      if (sleep(std::min(kPollInterval, std::chrono::ceil<milliseconds>(deadline - now)))) continue;
      Stop("interrupted");
      return false;
    }
    return true;
  }
  // Waits for a ready connection other than `earlier`; null if there is none in time.
  std::shared_ptr<CKDIBase> AwaitConnection(const std::shared_ptr<CKDIBase>& earlier, milliseconds limit) {
    std::shared_ptr<CKDIBase> current;
    const auto ready = [&] {
      current = host.Module()->GetDriverInteract();
      return current != nullptr && current != earlier;
    };
    return Await(ready, limit) ? current : nullptr;
  }

  // Runs the operation; false if it does not return in time. Ignores exceptions: the recording shows failed requests.
  bool RunStep(const DriveStep& step) {
    const ControlOperation* const operation = FindControlOperation(step.operation);
    host.Recording().AddCall(std::string(step.operation), Report(step.arguments));
    std::packaged_task<void()> run([owner = &host, operation, arguments = step.arguments] {
      try {
        operation->run(*owner, arguments);
      } catch (...) {
      }
    });
    const std::future<void> done = run.get_future();
    StartDetachedThread("a step of the checklist", std::move(run));
    return Await([&] { return done.wait_for(milliseconds(0)) == std::future_status::ready; }, settings.timeout);
  }
  bool RunSteps(const std::vector<DriveStep>& steps) {
    for (const DriveStep& step : steps) {
      if (AwaitConnection(nullptr, settings.timeout) == nullptr) {
        Stop(fmt::format("no connection was ready for \"{}\"", step.operation));
        return false;
      }
      if (!RunStep(step)) {
        Stop(fmt::format("\"{}\" did not return", step.operation));
        return false;
      }
    }
    return true;
  }
  void TakeNotifications() {
    host.Log(Severity::kEvent, fmt::format("[drive] taking notifications for {} ms", settings.notifications.count()));
    Await([this] { return settings.emulated && host.ScenarioFinished(); }, settings.notifications);
  }
  void Reconnect() {
    if (!outcome.stopped.empty()) return;
    const std::shared_ptr<CKDIBase> earlier = AwaitConnection(nullptr, settings.timeout);
    if (earlier == nullptr) {
      Stop("no connection was ready to be closed");
      return;
    }
    outcome.reconnectTried = true;
    if (!RunStep({"stop", {{"clear", ""}}})) {
      Stop("\"stop\" did not return");
      return;
    }
    outcome.reconnected = AwaitConnection(earlier, kReconnectPause + settings.timeout) != nullptr;
    if (outcome.reconnected) RunSteps({{"version", {}}});
    // An interrupted test says nothing about the driver.
    if (!outcome.reconnected && outcome.stopped == "interrupted") outcome.reconnectTried = false;
  }
  DriveReplies Replies() const {
    const SummaryFacts facts = host.Facts();
    if (!facts.filterPort) return {.late = facts.totals.late};
    return {.late = facts.filterPort->late,
            .refused = facts.filterPort->answeredInstead,
            .notAwaited = facts.filterPort->noAnswerDue};
  }

  ReferenceHost& host;
  const DriveSettings settings;
  const std::function<bool(milliseconds)>& sleep;
  DriveOutcome outcome;
};

}  // namespace

DriveOutcome PlayDrive(ReferenceHost& host, const DriveSettings& settings,
                       const std::function<bool(milliseconds time)>& sleep) {
  return DrivePlayer(host, settings, sleep).Play();
}

}  // namespace fenlux::refhost
