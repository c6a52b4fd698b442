// Puts the parts of the emulator together, and stands between them and the port clients that the module holds.
#include "refhost/emulator/driver_emulator.h"

#include <mutex>
#include <utility>

#include "refhost/emulator/driver_core.h"
#include "refhost/emulator/fanotify_source.h"
#include "refhost/emulator/port_client.h"
#include "refhost/emulator/scripted_source.h"

namespace fenlux::refhost {

class DriverEmulator::Impl {
 public:
  Impl(EmulatorSettings settings, Scenario scenario, EmulatorHooks hooks)
      : settings_(std::move(settings)),
        core_(std::make_shared<DriverCore>(settings_, scenario.faults, std::move(hooks))) {
    if (settings_.source == EventSourceKind::kFanotify) {
      source_ = MakeFanotifySource(core_, settings_.kernel);
    } else {
      scripted_ = std::make_shared<ScriptedSource>(core_, std::move(scenario));
      source_ = scripted_;
    }
    core_->Attach(source_);
    source_->Start();
  }

  void Stop() {
    const std::lock_guard lock(stopMutex_);
    if (source_ == nullptr) return;
    core_->BeginStop();
    source_->Stop(settings_.stopGrace);
    core_->FinishStop();
    source_.reset();  // with it goes the kernel's own handle, unless a thread was left behind
  }

  const std::shared_ptr<DriverCore>& Core() const { return core_; }
  const ScriptedSource* Scripted() const { return scripted_.get(); }

 private:
  const EmulatorSettings settings_;
  const std::shared_ptr<DriverCore> core_;
  std::shared_ptr<ScriptedSource> scripted_;
  std::mutex stopMutex_;
  std::shared_ptr<EventSource> source_;
};

DriverEmulator::DriverEmulator(EmulatorSettings settings, Scenario scenario, EmulatorHooks hooks)
    : impl_(std::make_unique<Impl>(std::move(settings), std::move(scenario), std::move(hooks))) {}

DriverEmulator::~DriverEmulator() { Stop(); }

std::shared_ptr<CPortClient> DriverEmulator::MakePortClient(const std::string& portName,
                                                            const std::shared_ptr<CBuf>& connectContext,
                                                            std::uint32_t maxMessageSize, NotificationHandler handler,
                                                            std::uint32_t portValue) {
  auto port = std::make_shared<DriverPort>(PortRequest{portName, connectContext, maxMessageSize, portValue},
                                           std::move(handler));
  return std::make_shared<EmulatorPortClient>(impl_->Core(), std::move(port));
}

void DriverEmulator::Stop() { impl_->Stop(); }

bool DriverEmulator::ScenarioFinished() const { return impl_->Scripted() != nullptr && impl_->Scripted()->Finished(); }

bool DriverEmulator::WaitScenarioFinished(std::chrono::milliseconds limit) const {
  return impl_->Scripted() != nullptr && impl_->Scripted()->WaitFinished(limit);
}

EmulatorState DriverEmulator::State() const { return impl_->Core()->State(); }

EmulatorTotals DriverEmulator::Totals() const { return impl_->Core()->Totals().Snapshot(); }

}  // namespace fenlux::refhost
