// Creates the emulated driver and its event source, and stops them in order.
#include "refhost/emulator/driver_emulator.h"

#include <utility>

#include "common/mutex.h"
#include "common/thread_annotations.h"
#include "refhost/emulator/driver/emulated_driver.h"
#include "refhost/emulator/driver/port_client.h"
#include "refhost/emulator/sources/kernel/fanotify_source.h"
#include "refhost/emulator/sources/scripted_source.h"

namespace fenlux::refhost {

class DriverEmulator::Impl {
 public:
  Impl(EmulatorSettings emulatorSettings, Scenario scenario, EmulatorHooks hooks)
      : settings(std::move(emulatorSettings)),
        driver(std::make_shared<EmulatedDriver>(settings, scenario.faults, std::move(hooks))) {
    if (settings.source == EventSourceKind::kFanotify) {
      source = MakeFanotifySource(driver, settings.kernel, settings.unjudged);
    } else {
      scripted = std::make_shared<ScriptedSource>(driver, std::move(scenario));
      source = scripted;
    }
    try {
      driver->Attach(source);
      source->Start();
    } catch (...) {
      Stop();  // ends the threads that could be started
      throw;
    }
  }

  void Stop() {
    const MutexLock lock(stopMutex);
    if (source == nullptr) return;
    driver->BeginStop();
    source->Stop(settings.stopGrace);
    driver->FinishStop();
    source.reset();  // closes the kernel's handle, unless a thread was left behind
  }

  const std::shared_ptr<EmulatedDriver>& Driver() const { return driver; }
  const ScriptedSource* Scripted() const { return scripted.get(); }

 private:
  const EmulatorSettings settings;
  const std::shared_ptr<EmulatedDriver> driver;
  std::shared_ptr<ScriptedSource> scripted;
  Mutex stopMutex;
  std::shared_ptr<EventSource> source FENLUX_GUARDED_BY(stopMutex);
};

DriverEmulator::DriverEmulator(EmulatorSettings settings, Scenario scenario, EmulatorHooks hooks)
    : impl(std::make_unique<Impl>(std::move(settings), std::move(scenario), std::move(hooks))) {}

DriverEmulator::~DriverEmulator() { Stop(); }

std::shared_ptr<CPortClient> DriverEmulator::MakePortClient(const std::string& portName,
                                                            const std::shared_ptr<CBuf>& connectContext,
                                                            std::uint32_t maxMessageSize, NotificationHandler handler,
                                                            std::uint32_t portValue) {
  auto port = std::make_shared<DriverPort>(
      PortRequest{portName, connectContext, maxMessageSize, std::move(handler), portValue});
  return std::make_shared<EmulatorPortClient>(impl->Driver(), std::move(port));
}

void DriverEmulator::Stop() { impl->Stop(); }

bool DriverEmulator::ScenarioFinished() const { return impl->Scripted() != nullptr && impl->Scripted()->Finished(); }

bool DriverEmulator::WaitScenarioFinished(std::chrono::milliseconds limit) const {
  return impl->Scripted() != nullptr && impl->Scripted()->WaitFinished(limit);
}

void DriverEmulator::EnforceRefusals(bool enforced) { impl->Driver()->EnforceRefusals(enforced); }

std::vector<WatchState> DriverEmulator::Watches() const { return impl->Driver()->Watches(); }

EmulatorState DriverEmulator::State() const { return impl->Driver()->Model().State(); }

EmulatorTotals DriverEmulator::Totals() const { return impl->Driver()->Totals().Snapshot(); }

LatencyCounts DriverEmulator::Latencies() const { return impl->Driver()->Totals().RecentLatencies().Counts(); }

std::chrono::nanoseconds DriverEmulator::MaxLatency(bool reset) const {
  return impl->Driver()->Totals().RecentLatencies().Max(reset);
}

}  // namespace fenlux::refhost
