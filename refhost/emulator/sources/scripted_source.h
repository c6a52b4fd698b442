// The event source that plays a scenario.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <memory>
#include <vector>

#include "common/mutex.h"
#include "common/thread_annotations.h"
#include "refhost/emulator/driver/emulated_driver.h"
#include "refhost/emulator/driver/shared/event_source.h"
#include "refhost/emulator/sources/scenario.h"
#include "refhost/emulator/sources/thread_crew.h"

namespace fenlux::refhost {

// One thread plays the steps; the scenario's delivery threads share each step's notifications. A notification waits for
// a connection, so each one is delivered, however often the connection is dropped.
//
// Locks: mutex may be taken under a slot's lock, because a release settles its batch.
class ScriptedSource final : public EventSource, public std::enable_shared_from_this<ScriptedSource> {
 public:
  ScriptedSource(std::shared_ptr<EmulatedDriver> emulatedDriver, Scenario scenarioToPlay)
      : driver(std::move(emulatedDriver)), scenario(std::move(scenarioToPlay)) {}

  void Start() override;
  void Watch(std::uint64_t revision, const std::vector<std::string>& directories) override;
  bool OnWatchdog() override { return false; }
  void Stop(std::chrono::milliseconds grace) override;

  bool Finished() const;
  bool WaitFinished(std::chrono::milliseconds limit) const;

 private:
  struct Batch;
  class Progress;
  class StepPlayer;

  void Play();
  // Carries out a step. Returns false if memory ran out and the step should be tried again.
  bool PlayStep(const ScenarioStep& step);
  void Deliver(AnswerSlot& slot);
  // The oldest batch that another thread can work on; null if there is none.
  std::shared_ptr<Batch> FindWork() const FENLUX_REQUIRES(mutex);
  // Counts the outcome of one notification; the last one ends the batch.
  void Settle(Batch& batch);

  const std::shared_ptr<EmulatedDriver> driver;
  const Scenario scenario;
  ThreadCrew crew;

  mutable Mutex mutex;
  mutable std::condition_variable changed;
  std::vector<std::shared_ptr<Batch>> batches FENLUX_GUARDED_BY(mutex);  // with unsettled notifications, oldest first
  bool stopping FENLUX_GUARDED_BY(mutex) = false;
  bool finished FENLUX_GUARDED_BY(mutex) = false;
};

}  // namespace fenlux::refhost
