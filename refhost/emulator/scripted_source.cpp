// Plays the steps of a scenario on as many threads as it asks for, and compares the verdicts with what it expects.
#include "refhost/emulator/scripted_source.h"

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
  Progress(ScriptedSource& source, Batch& batch) : source_(source), batch_(batch) {}
  void Delivered() noexcept override {
    const std::lock_guard lock(source_.mutex_);
    ++batch_.delivered;
    if (batch_.delivered == batch_.Width()) source_.changed_.notify_all();
  }
  void Release(UnjudgedCause) noexcept override { source_.Settle(batch_); }

 private:
  ScriptedSource& source_;
  Batch& batch_;
};

// Carries out the steps that are not notifications, and queues those that are.
class ScriptedSource::StepPlayer {
 public:
  StepPlayer(ScriptedSource& source, std::uint32_t number) : source_(source), core_(*source.core_), number_(number) {}

  void operator()(const NotifyStep& step) const {
    const auto batch = std::make_shared<Batch>(step);
    std::unique_lock lock(source_.mutex_);
    source_.batches_.push_back(batch);
    source_.changed_.notify_all();
    source_.changed_.wait(lock, [&] {
      const bool done = step.inBackground ? batch->delivered >= batch->Width() : batch->settled == step.count;
      return done || source_.stopping_;
    });
  }
  void operator()(const PauseStep& step) const { core_.Sleep(step.duration); }
  void operator()(const DropStep&) const {
    if (core_.WaitDeliverable()) core_.DropConnection("step " + std::to_string(number_) + " drops it");
  }
  void operator()(const FaultStep& step) const { core_.SetFaults(step.faults); }
  void operator()(const AwaitRequestStep& step) const {
    if (core_.WaitForRequest(step.command, step.times, step.limit) || core_.Stopping()) return;
    core_.AddViolation("step " + std::to_string(number_) + " waited in vain for request " +
                       std::to_string(step.command));
  }

 private:
  ScriptedSource& source_;
  DriverCore& core_;
  const std::uint32_t number_;
};

void ScriptedSource::Start() {
  // The threads own the source: one that is left behind inside a handler still finds it when the call returns.
  const auto self = shared_from_this();
  for (std::uint32_t i = 0; i < scenario_.threads; ++i) crew_.Add([self] { self->Deliver(); });
  crew_.Add([self] { self->Play(); });
}

void ScriptedSource::Watch(std::uint64_t, const std::vector<std::string>&) {}  // the scenario says what happens

void ScriptedSource::Play() {
  for (std::uint64_t round = 0; scenario_.repeat == 0 || round < scenario_.repeat; ++round) {
    for (const ScenarioStep& step : scenario_.steps) {
      if (core_->Stopping()) return;
      std::visit(StepPlayer(*this, step.number), step.action);
    }
    // An endless scenario without events or pauses must not spin.
    if (scenario_.repeat == 0 && !core_->Sleep(std::chrono::milliseconds(1))) return;
  }
  {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return batches_.empty() || stopping_; });
    if (stopping_ || core_->Stopping()) return;
    finished_ = true;
  }
  changed_.notify_all();
  core_->ReportScenarioFinished();
}

// Notes the outcome of one notification; a batch is forgotten with its last.
void ScriptedSource::Settle(Batch& batch) {
  const std::lock_guard lock(mutex_);
  if (++batch.settled < batch.step.count) return;
  std::erase_if(batches_, [&batch](const auto& known) { return known.get() == &batch; });
  changed_.notify_all();
}

void ScriptedSource::Deliver() {
  const auto slot = core_->MakeSlot();
  for (;;) {
    std::shared_ptr<Batch> batch;
    std::uint64_t index = 0;
    {
      std::unique_lock lock(mutex_);
      changed_.wait(lock, [&] {  // for the oldest step that has room
        const auto found = std::find_if(batches_.begin(), batches_.end(), [](auto& b) { return b->CanTakeThread(); });
        batch = found == batches_.end() ? nullptr : *found;
        return stopping_ || batch != nullptr;
      });
      if (stopping_) return;
      index = batch->begun++;
      ++batch->threads;
    }
    const auto due = batch->Due(index) - std::chrono::steady_clock::now();
    if (due.count() > 0 && !core_->Sleep(due)) return;

    Progress release(*this, *batch);
    DeliveryOptions options;
    options.expectedVerdict = batch->step.expectedVerdict;
    options.holdReply = batch->step.holdReply;
    options.holdUntilEnd = batch->step.holdUntilEnd;
    options.release = &release;
    Delivery delivery;
    do {
      if (!core_->WaitDeliverable()) return;
      delivery = core_->Deliver(*slot, batch->step.message.data(),
                                static_cast<std::uint32_t>(batch->step.message.size()), options);
    } while (delivery.outcome == Delivery::Outcome::kNotConnected);
    if (delivery.outcome != Delivery::Outcome::kTaken) Settle(*batch);
    {
      const std::lock_guard lock(mutex_);
      --batch->threads;
      if (!batch->CanTakeThread()) continue;
    }
    changed_.notify_all();
  }
}

void ScriptedSource::Stop(std::chrono::milliseconds grace) {
  {
    const std::lock_guard lock(mutex_);
    stopping_ = true;
  }
  changed_.notify_all();
  crew_.Join(grace);
}

bool ScriptedSource::Finished() const {
  const std::lock_guard lock(mutex_);
  return finished_;
}

bool ScriptedSource::WaitFinished(std::chrono::milliseconds limit) const {
  std::unique_lock lock(mutex_);
  changed_.wait_for(lock, limit, [this] { return finished_ || stopping_; });
  return finished_;
}

}  // namespace fenlux::refhost
