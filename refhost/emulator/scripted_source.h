// The event source that plays a scenario.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

#include "refhost/emulator/driver_core.h"
#include "refhost/emulator/event_source.h"
#include "refhost/emulator/scenario.h"
#include "refhost/emulator/thread_crew.h"

namespace fenlux::refhost {

// One thread walks through the steps; the scenario's delivery threads share each step's notifications. Notifications
// wait for a connection to go over, so that every one is delivered, however often the connection is dropped.
class ScriptedSource final : public EventSource, public std::enable_shared_from_this<ScriptedSource> {
 public:
  ScriptedSource(std::shared_ptr<DriverCore> core, Scenario scenario)
      : core_(std::move(core)), scenario_(std::move(scenario)) {}

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

  const std::shared_ptr<DriverCore> core_;
  const Scenario scenario_;
  ThreadCrew crew_;

  mutable std::mutex mutex_;
  mutable std::condition_variable changed_;
  std::vector<std::shared_ptr<Batch>> batches_;  // with unsettled notifications, oldest first
  bool stopping_ = false;
  bool finished_ = false;
};

}  // namespace fenlux::refhost
