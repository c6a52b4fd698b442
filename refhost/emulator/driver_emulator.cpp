// Puts the parts of the emulator together, and stands between them and the port clients that the module holds.
#include "refhost/emulator/driver_emulator.h"

#include <mutex>
#include <utility>

#include "refhost/emulator/driver/driver_core.h"
#include "refhost/emulator/driver/port_client.h"
#include "refhost/emulator/sources/fanotify_source.h"
#include "refhost/emulator/sources/scripted_source.h"

namespace fenlux::refhost {

class DriverEmulator::Impl {
 public:
  Impl(EmulatorSettings emulatorSettings, Scenario scenario, EmulatorHooks hooks)
      : settings(std::move(emulatorSettings)),
        core(std::make_shared<DriverCore>(settings, scenario.faults, std::move(hooks))) {
    if (settings.source == EventSourceKind::kFanotify) {
      source = MakeFanotifySource(core, settings.kernel);
    } else {
      scripted = std::make_shared<ScriptedSource>(core, std::move(scenario));
      source = scripted;
    }
    core->Attach(source);
    source->Start();
  }

  void Stop() {
    const std::lock_guard lock(stopMutex);
    if (source == nullptr) return;
    core->BeginStop();
    source->Stop(settings.stopGrace);
    core->FinishStop();
    source.reset();  // with it goes the kernel's own handle, unless a thread was left behind
  }

  const std::shared_ptr<DriverCore>& Core() const { return core; }
  const ScriptedSource* Scripted() const { return scripted.get(); }

 private:
  const EmulatorSettings settings;
  const std::shared_ptr<DriverCore> core;
  std::shared_ptr<ScriptedSource> scripted;
  std::mutex stopMutex;
  std::shared_ptr<EventSource> source;
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
  return std::make_shared<EmulatorPortClient>(impl->Core(), std::move(port));
}

void DriverEmulator::Stop() { impl->Stop(); }

bool DriverEmulator::ScenarioFinished() const { return impl->Scripted() != nullptr && impl->Scripted()->Finished(); }

bool DriverEmulator::WaitScenarioFinished(std::chrono::milliseconds limit) const {
  return impl->Scripted() != nullptr && impl->Scripted()->WaitFinished(limit);
}

EmulatorState DriverEmulator::State() const { return impl->Core()->State(); }

EmulatorTotals DriverEmulator::Totals() const { return impl->Core()->Totals().Snapshot(); }

}  // namespace fenlux::refhost
