// Plays the steps of a scenario on as many threads as it asks for, and compares the verdicts with what it expects.
#include "refhost/emulator/sources/scripted_source.h"

#include <algorithm>
#include <cstdint>
#include <utility>
#include <vector>

namespace fenlux::refhost {

// The notifications of one step on their way. All counts are guarded by the source's lock.
struct ScriptedSource::Batch {
  explicit Batch(const NotifyStep& notify) : step(notify), start(std::chrono::steady_clock::now()) {}

  const NotifyStep& step;
  const std::chrono::steady_clock::time_point start;
  std::uint64_t begun = 0;
  std::uint64_t delivered = 0;
  std::uint64_t settled = 0;  // their outcome is known, though their thread may still be inside the module
  std::uint32_t threads = 0;  // that work for this step

  bool CanTakeThread() const { return begun < step.count && threads < step.threads; }
  // How many of them go to the module side by side.
  std::uint64_t Width() const { return std::min<std::uint64_t>(step.count, step.threads); }
  // When the notification of that index is due.
  std::chrono::steady_clock::time_point Due(std::uint64_t index) const {
    if (step.ratePerSecond <= 0) return start;
    const std::chrono::duration<double> offset(static_cast<double>(index) / step.ratePerSecond);
    return start + std::chrono::duration_cast<std::chrono::nanoseconds>(offset);
  }
};

// Keeps a batch's counts, also where somebody else takes an answer.
class ScriptedSource::Progress final : public AnswerRelease {
 public:
  Progress(ScriptedSource& owner, Batch& counted) : source(owner), batch(counted) {}
  void Delivered() noexcept override {
    const std::lock_guard lock(source.mutex);
    ++batch.delivered;
    if (batch.delivered == batch.Width()) source.changed.notify_all();
  }
  void Release(UnjudgedCause) noexcept override { source.Settle(batch); }

 private:
  ScriptedSource& source;
  Batch& batch;
};

// Carries out the steps that are not notifications, and queues those that are.
class ScriptedSource::StepPlayer {
 public:
  StepPlayer(ScriptedSource& owner, std::uint32_t stepNumber) : source(owner), core(*owner.core), number(stepNumber) {}

  void operator()(const NotifyStep& step) const {
    const auto batch = std::make_shared<Batch>(step);
    std::unique_lock lock(source.mutex);
    source.batches.push_back(batch);
    source.changed.notify_all();
    source.changed.wait(lock, [&] {
      const bool done = step.inBackground ? batch->delivered >= batch->Width() : batch->settled == step.count;
      return done || source.stopping;
    });
  }
  void operator()(const PauseStep& step) const { core.Sleep(step.duration); }
  void operator()(const DropStep&) const {
    if (core.WaitDeliverable()) core.DropConnection("step " + std::to_string(number) + " drops it");
  }
  void operator()(const FaultStep& step) const { core.SetFaults(step.faults); }
  void operator()(const AwaitRequestStep& step) const {
    if (core.WaitForRequest(step.command, step.times, step.limit) || core.Stopping()) return;
    core.AddViolation("step " + std::to_string(number) + " waited in vain for request " + std::to_string(step.command));
  }

 private:
  ScriptedSource& source;
  DriverCore& core;
  const std::uint32_t number;
};

void ScriptedSource::Start() {
  // The threads own the source: one that is left behind inside a handler still finds it when the call returns.
  const auto self = shared_from_this();
  for (std::uint32_t i = 0; i < scenario.threads; ++i) crew.Add([self] { self->Deliver(); });
  crew.Add([self] { self->Play(); });
}

void ScriptedSource::Watch(std::uint64_t, const std::vector<std::string>&) {}  // the scenario says what happens

void ScriptedSource::Play() {
  for (std::uint64_t round = 0; scenario.repeat == 0 || round < scenario.repeat; ++round) {
    for (const ScenarioStep& step : scenario.steps) {
      if (core->Stopping()) return;
      std::visit(StepPlayer(*this, step.number), step.action);
    }
    // An endless scenario without events or pauses must not spin.
    if (scenario.repeat == 0 && !core->Sleep(std::chrono::milliseconds(1))) return;
  }
  {
    std::unique_lock lock(mutex);
    changed.wait(lock, [this] { return batches.empty() || stopping; });
    if (stopping || core->Stopping()) return;
    finished = true;
  }
  changed.notify_all();
  core->ReportScenarioFinished();
}

// Notes the outcome of one notification; a batch is forgotten with its last.
void ScriptedSource::Settle(Batch& batch) {
  const std::lock_guard lock(mutex);
  if (++batch.settled < batch.step.count) return;
  std::erase_if(batches, [&batch](const auto& known) { return known.get() == &batch; });
  changed.notify_all();
}

void ScriptedSource::Deliver() {
  const auto slot = core->MakeSlot();
  for (;;) {
    std::shared_ptr<Batch> batch;
    std::uint64_t index = 0;
    {
      std::unique_lock lock(mutex);
      changed.wait(lock, [&] {  // for the oldest step that has room
        const auto found = std::find_if(batches.begin(), batches.end(), [](auto& b) { return b->CanTakeThread(); });
        batch = found == batches.end() ? nullptr : *found;
        return stopping || batch != nullptr;
      });
      if (stopping) return;
      index = batch->begun++;
      ++batch->threads;
    }
    const auto due = batch->Due(index) - std::chrono::steady_clock::now();
    if (due.count() > 0 && !core->Sleep(due)) return;

    Progress release(*this, *batch);
    DeliveryOptions options;
    options.expectedVerdict = batch->step.expectedVerdict;
    options.holdReply = batch->step.holdReply;
    options.holdUntilEnd = batch->step.holdUntilEnd;
    options.release = &release;
    Delivery delivery;
    do {
      if (!core->WaitDeliverable()) return;
      delivery = core->Deliver(*slot, batch->step.message.data(),
                               static_cast<std::uint32_t>(batch->step.message.size()), options);
    } while (delivery.outcome == Delivery::Outcome::kNotConnected);
    if (delivery.outcome != Delivery::Outcome::kTaken) Settle(*batch);
    {
      const std::lock_guard lock(mutex);
      --batch->threads;
      if (!batch->CanTakeThread()) continue;
    }
    changed.notify_all();
  }
}

void ScriptedSource::Stop(std::chrono::milliseconds grace) {
  {
    const std::lock_guard lock(mutex);
    stopping = true;
  }
  changed.notify_all();
  crew.Join(grace);
}

bool ScriptedSource::Finished() const {
  const std::lock_guard lock(mutex);
  return finished;
}

bool ScriptedSource::WaitFinished(std::chrono::milliseconds limit) const {
  std::unique_lock lock(mutex);
  changed.wait_for(lock, limit, [this] { return finished || stopping; });
  return finished;
}

}  // namespace fenlux::refhost
