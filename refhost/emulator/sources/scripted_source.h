// The event source that plays a scenario.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

#include "refhost/emulator/driver/driver_core.h"
#include "refhost/emulator/sources/event_source.h"
#include "refhost/emulator/sources/scenario.h"
#include "refhost/emulator/thread_crew.h"

namespace fenlux::refhost {

// One thread walks through the steps; the scenario's delivery threads share each step's notifications. Notifications
// wait for a connection to go over, so that every one is delivered, however often the connection is dropped.
class ScriptedSource final : public EventSource, public std::enable_shared_from_this<ScriptedSource> {
 public:
  ScriptedSource(std::shared_ptr<DriverCore> driverCore, Scenario played)
      : core(std::move(driverCore)), scenario(std::move(played)) {}

  void Start() override;
  void Watch(std::uint64_t revision, const std::vector<std::string>& directories) override;
  void OnWatchdog() override {}
  void Stop(std::chrono::milliseconds grace) override;

  bool Finished() const;
  bool WaitFinished(std::chrono::milliseconds limit) const;

 private:
  struct Batch;
  class Progress;
  class StepPlayer;

  void Play();
  void Deliver();
  void Settle(Batch& batch);

  const std::shared_ptr<DriverCore> core;
  const Scenario scenario;
  ThreadCrew crew;

  mutable std::mutex mutex;
  mutable std::condition_variable changed;
  std::vector<std::shared_ptr<Batch>> batches;  // with unsettled notifications, oldest first
  bool stopping = false;
  bool finished = false;
};

}  // namespace fenlux::refhost
