// Connects the driver's parts to each other, and stops them in order.
#include "refhost/emulator/driver/emulated_driver.h"

#include <utility>

namespace fenlux::refhost {

EmulatedDriver::EmulatedDriver(const EmulatorSettings& settings, const EmulatorFaults& scenarioFaults,
                               EmulatorHooks hostHooks)
    : decisions(hostHooks.decisions),
      refusalsEnforced(settings.refusalsEnforced),
      hooks(std::move(hostHooks)),
      model(hooks),
      answers(totals),
      connections(model, answers, source, wake, hooks),
      requests(settings.driverVersion, model, source, wake, hooks),
      delivery(settings, connections, model, answers, totals, wake, decisions.get(), refusalsEnforced),
      watchdog(settings.deadline, answers, source) {
  SetFaults(settings.faults);
  SetFaults(scenarioFaults);
}

void EmulatedDriver::SetFaults(const EmulatorFaults& changes) {
  requests.SetFaults(changes);
  delivery.SetFaults(changes);
  connections.SetFaults(changes);
}

bool EmulatedDriver::WaitForRequest(std::uint32_t command, std::uint64_t times, std::chrono::milliseconds limit) {
  return wake.WaitFor(limit, [&] { return model.Received(command, times); });
}

void EmulatedDriver::Attach(std::shared_ptr<EventSource> eventSource) {
  source.Attach(std::move(eventSource));
  source.UpdateWatch(model);
  watchdog.Start();
}

void EmulatedDriver::BeginStop() {
  wake.Stop();
  connections.EndCurrent(UnjudgedCause::kStopped, "the emulator stops");
  answers.TakeForEnd(nullptr, UnjudgedCause::kStopped);
}

void EmulatedDriver::FinishStop() {
  watchdog.Stop();
  source.Detach();
  hooks.Release();
}

}  // namespace fenlux::refhost
