// Manages the observers, and each thread's current scope.
#include "refhost/services/events/decision_sink.h"

#include <algorithm>
#include <utility>

#include "refhost/services/events/event_record.h"

namespace fenlux::refhost {
namespace {

// A plain pointer to the stack, so that nothing needs to be destroyed when the thread ends.
thread_local DecisionScope* currentScope = nullptr;

bool Wants(DecisionInterest interest, const DecisionRecord& record) {
  return interest == DecisionInterest::kAll || (interest == DecisionInterest::kRefusals && record.IsRefusal());
}

}  // namespace

DecisionResult DecisionRecord::Result() const {
  if (end.refused) return DecisionResult::kRefused;
  if (end.wouldRefuse || !judged.enforced) return DecisionResult::kWouldRefuse;
  return end.verdict == 0 && end.cause.empty() ? DecisionResult::kNoReply : DecisionResult::kAllowed;
}

void DecisionSink::Attach(const std::shared_ptr<DecisionObserver>& observer, DecisionInterest interest) {
  const MutexLock lock(changeMutex);
  std::vector<Entry> next = *observers.Get();
  std::erase_if(next, [&](const Entry& entry) { return entry.observer == observer; });
  if (interest != DecisionInterest::kNone) next.push_back({observer, interest});
  Set(std::move(next));
}

void DecisionSink::Detach(const std::shared_ptr<DecisionObserver>& observer) {
  Attach(observer, DecisionInterest::kNone);
}

void DecisionSink::Set(std::vector<Entry> next) {
  DecisionInterest most = DecisionInterest::kNone;
  for (const Entry& entry : next) most = std::max(most, entry.interest);
  observers.Set(std::move(next));
  greatest.store(most, std::memory_order_relaxed);
}

void DecisionSink::Report(DecisionRecord record) noexcept {
  if (!Wants(Interest(), record)) return;
  record.time = std::chrono::system_clock::now();
  const std::shared_ptr<const std::vector<Entry>> current = observers.Get();
  for (const Entry& entry : *current) {
    if (Wants(entry.interest, record)) entry.observer->Observe(record);
  }
}

DecisionScope::DecisionScope(DecisionSink* decisionSink, std::uint32_t notificationCode,
                             std::string_view kernelOperation) noexcept
    : sink(decisionSink == nullptr || decisionSink->Interest() == DecisionInterest::kNone ? nullptr : decisionSink),
      outer(currentScope),
      code(notificationCode),
      operation(kernelOperation) {
  currentScope = sink == nullptr ? nullptr : this;
}

DecisionScope::~DecisionScope() { currentScope = outer; }

DecisionScope* DecisionScope::Current() noexcept { return currentScope; }

void DecisionScope::End(const DecisionEnd& end) noexcept {
  if (sink == nullptr || judged.event == nullptr) return;
  const std::uint64_t processId = judged.event->Data().processId;
  sink->Report({.time = {},
                .code = code,
                .processId = processId,
                .operation = operation,
                .judged = std::move(judged),
                .end = end});
}

}  // namespace fenlux::refhost
