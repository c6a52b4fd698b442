// Plays the steps of a scenario, and delivers their notifications.
#include "refhost/emulator/sources/scripted_source.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdint>
#include <new>
#include <utility>
#include <vector>

namespace fenlux::refhost {

// The notifications of one step during their delivery. The source's lock guards all counts.
struct ScriptedSource::Batch {
  explicit Batch(const NotifyStep& notify) : step(notify), start(std::chrono::steady_clock::now()) {}

  const NotifyStep& step;
  const std::chrono::steady_clock::time_point start;
  std::uint64_t begun = 0;
  std::uint64_t delivered = 0;
  std::uint64_t settled = 0;  // with a known outcome, although their thread may still be inside the module
  std::uint32_t threads = 0;  // threads that work on this step

  bool CanTakeThread() const { return begun < step.count && threads < step.threads; }
  // How many of them can be inside the module at the same time.
  std::uint64_t Width() const { return std::min<std::uint64_t>(step.count, step.threads); }
  // When the notification with that index is due.
  std::chrono::steady_clock::time_point Due(std::uint64_t index) const {
    if (step.ratePerSecond <= 0) return start;
    const std::chrono::duration<double> offset(static_cast<double>(index) / step.ratePerSecond);
    return start + std::chrono::duration_cast<std::chrono::nanoseconds>(offset);
  }
};

// Updates a batch's counts, including when another party takes an answer.
class ScriptedSource::Progress final : public AnswerRelease {
 public:
  Progress(ScriptedSource& owner, Batch& counted) : source(owner), batch(counted) {}
  void Delivered() noexcept override {
    const MutexLock lock(source.mutex);
    ++batch.delivered;
    if (batch.delivered == batch.Width()) source.changed.notify_all();
  }
  void Release(UnjudgedCause) noexcept override { source.Settle(batch); }

 private:
  ScriptedSource& source;
  Batch& batch;
};

// Carries out a step. Notifications go to the delivery threads as a batch.
class ScriptedSource::StepPlayer {
 public:
  StepPlayer(ScriptedSource& owner, std::uint32_t stepNumber)
      : source(owner), driver(*owner.driver), number(stepNumber) {}

  void operator()(const NotifyStep& step) const {
    const auto batch = std::make_shared<Batch>(step);
    const auto done = [&] {
      return step.inBackground ? batch->delivered >= batch->Width() : batch->settled == step.count;
    };
    MutexLock lock(source.mutex);
    source.batches.push_back(batch);
    source.changed.notify_all();
    while (!source.stopping && !done()) lock.Wait(source.changed);
  }
  void operator()(const PauseStep& step) const { driver.Wake().Sleep(step.duration); }
  void operator()(const DropStep&) const {
    if (!driver.Deliveries().WaitDeliverable()) return;
    driver.Connections().EndCurrent(UnjudgedCause::kConnectionEnded, fmt::format("step {} drops it", number));
  }
  void operator()(const FaultStep& step) const { driver.SetFaults(step.faults); }
  void operator()(const AwaitRequestStep& step) const {
    if (driver.WaitForRequest(step.command, step.times, step.limit) || driver.Wake().Stopping()) return;
    driver.Model().ReportViolation(fmt::format("step {} timed out waiting for request {}", number, step.command));
  }

 private:
  ScriptedSource& source;
  EmulatedDriver& driver;
  const std::uint32_t number;
};

void ScriptedSource::Start() {
  // The threads share ownership of the source: one left behind inside a handler still uses it when the call returns.
  const auto self = shared_from_this();
  for (std::uint32_t i = 0; i < scenario.threads; ++i) {
    // Created here, so that a running thread needs no memory for it.
    crew.Add("deliveries", [self, slot = driver->Deliveries().MakeSlot()] { self->Deliver(*slot); });
  }
  crew.Add("the scenario", [self] { self->Play(); });
}

void ScriptedSource::Watch(std::uint64_t, const std::vector<std::string>&) {}  // the scenario alone decides

void ScriptedSource::Play() {
  for (std::uint64_t round = 0; scenario.repeat == 0 || round < scenario.repeat; ++round) {
    for (const ScenarioStep& step : scenario.steps) {
      if (driver->Wake().Stopping()) return;
      while (!PlayStep(step)) driver->Wake().Sleep(std::chrono::milliseconds(1));
    }
    // An endless scenario without events or pauses must not spin.
    if (scenario.repeat == 0 && !driver->Wake().Sleep(std::chrono::milliseconds(1))) return;
  }
  {
    MutexLock lock(mutex);
    while (!batches.empty() && !stopping) lock.Wait(changed);
    if (stopping || driver->Wake().Stopping()) return;
    finished = true;
  }
  changed.notify_all();
  driver->Hooks().ReportScenarioFinished();
}

bool ScriptedSource::PlayStep(const ScenarioStep& step) {
  try {
    std::visit(StepPlayer(*this, step.number), step.action);
    return true;
  } catch (const std::bad_alloc&) {
    return driver->Wake().Stopping();
  }
}

void ScriptedSource::Settle(Batch& batch) {
  const MutexLock lock(mutex);
  if (++batch.settled < batch.step.count) return;
  std::erase_if(batches, [&batch](const auto& known) { return known.get() == &batch; });
  changed.notify_all();
}

std::shared_ptr<ScriptedSource::Batch> ScriptedSource::FindWork() const {
  const auto found =
      std::find_if(batches.begin(), batches.end(), [](const auto& batch) { return batch->CanTakeThread(); });
  return found == batches.end() ? nullptr : *found;
}

void ScriptedSource::Deliver(AnswerSlot& slot) {
  for (;;) {
    std::shared_ptr<Batch> batch;
    std::uint64_t index = 0;
    {
      MutexLock lock(mutex);
      while (!stopping && (batch = FindWork()) == nullptr) lock.Wait(changed);
      if (stopping) return;
      index = batch->begun++;
      ++batch->threads;
    }
    const auto due = batch->Due(index) - std::chrono::steady_clock::now();
    if (due.count() > 0 && !driver->Wake().Sleep(due)) return;

    Progress release(*this, *batch);
    DeliveryOptions options;
    options.expectedVerdict = batch->step.expectedVerdict;
    options.holdReply = batch->step.holdReply;
    options.holdUntilEnd = batch->step.holdUntilEnd;
    options.release = &release;
    Delivery delivery;
    do {
      if (!driver->Deliveries().WaitDeliverable()) return;
      delivery = driver->Deliveries().Deliver(slot, NotificationView(batch->step.message), options);
    } while (delivery.outcome == Delivery::Outcome::kNotConnected);
    if (delivery.outcome != Delivery::Outcome::kTaken) Settle(*batch);
    {
      const MutexLock lock(mutex);
      --batch->threads;
      if (!batch->CanTakeThread()) continue;
    }
    changed.notify_all();
  }
}

void ScriptedSource::Stop(std::chrono::milliseconds grace) {
  {
    const MutexLock lock(mutex);
    stopping = true;
  }
  changed.notify_all();
  crew.Join(grace);
}

bool ScriptedSource::Finished() const {
  const MutexLock lock(mutex);
  return finished;
}

bool ScriptedSource::WaitFinished(std::chrono::milliseconds limit) const {
  const auto deadline = std::chrono::steady_clock::now() + limit;
  MutexLock lock(mutex);
  while (!finished && !stopping && lock.WaitUntil(changed, deadline)) {
  }
  return finished;
}

}  // namespace fenlux::refhost
