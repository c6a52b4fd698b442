// Passes one record of every judged event to its observers: the decision log, watchers, metrics.
//
// Only the judge knows the deciding rule, and only the caller of the module knows the verdict and the time. Both run on
// the same thread: a DecisionScope there gets the judgement from the judge while the module works, and passes on the
// record at the end. Without observers, a scope does nothing. The event itself is never copied.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

#include "common/mutex.h"
#include "host/ao_arp.h"
#include "refhost/base/live_value.h"

namespace fenlux::refhost {

class EventRecord;
struct Rule;
struct RulesInForce;

// The judge's part of a record.
struct JudgedEvent {
  std::shared_ptr<const EventRecord> event;   // complete; it no longer changes
  std::shared_ptr<const RulesInForce> rules;  // the rules that were applied
  const Rule* rule = nullptr;                 // the one of them that decided; null: the default decision
  bool programUnknown = false;  // the rule's program pattern would have decided, but the program is not known
  Decision decision = Decision::kUndecided;
  bool refuses = false;  // the decision refuses the operation
  bool enforced = true;  // false: the module was told to allow it, because refusals are not enforced
};

enum class DecisionResult {
  kAllowed,
  kRefused,
  kWouldRefuse,  // allowed, because decisions are not enforced
  kNoReply,      // the driver expects no reply to this event, so the decision has no effect
};

// The outcome of an event's operation.
struct DecisionEnd {
  std::uint32_t verdict = 0;            // the verdict that the driver received; 0: none
  bool refused = false;                 // the operation was refused
  bool wouldRefuse = false;             // not judged, and would be refused if refusals were enforced
  std::string_view cause;               // why the reply did not count, such as "late"; else empty. Static text
  std::chrono::nanoseconds latency{0};  // from the delivery of the notification until its reply was received
};

// One event. A copy shares the event and the rules. For an event that was refused without a judgement, `judged.event`
// and `judged.rules` are null and `end.cause` is set.
struct DecisionRecord {
  std::chrono::system_clock::time_point time;
  std::uint32_t code = 0;  // of the notification
  std::uint64_t processId = 0;
  std::string_view operation;  // for kernel events: "open", "exec" or "read"; otherwise empty. Static text
  JudgedEvent judged;
  DecisionEnd end;

  DecisionResult Result() const;
  // Whether it was refused, would have been if enforced, or should have been by the decision: "refused" in the log.
  bool IsRefusal() const { return end.refused || end.wouldRefuse || judged.refuses; }
};

class DecisionObserver {
 public:
  virtual ~DecisionObserver() = default;
  // Receives one record. Called on the delivery threads, concurrently, after the module replies and before the driver
  // gets the reply: must not block.
  virtual void Observe(const DecisionRecord& record) noexcept = 0;
};

// The records that an observer receives.
enum class DecisionInterest : std::uint8_t { kNone, kRefusals, kAll };

// Any thread.
class DecisionSink {
 public:
  // Adds an observer, or changes its interest. Throws std::bad_alloc.
  void Attach(const std::shared_ptr<DecisionObserver>& observer, DecisionInterest interest);
  // Calls in progress may end after this returns.
  void Detach(const std::shared_ptr<DecisionObserver>& observer);

  // The broadest interest of any observer.
  DecisionInterest Interest() const { return greatest.load(std::memory_order_relaxed); }
  // Sets the record's time, and passes it to the interested observers.
  void Report(DecisionRecord record) noexcept;

 private:
  struct Entry {
    std::shared_ptr<DecisionObserver> observer;
    DecisionInterest interest;
  };
  void Set(std::vector<Entry> next);

  Mutex changeMutex;  // serializes changes; guards no member by itself
  std::atomic<DecisionInterest> greatest{DecisionInterest::kNone};
  LiveValue<std::vector<Entry>> observers{std::vector<Entry>()};
};

// Lives on the stack of the thread that passes a notification to the module, around that call.
class DecisionScope {
 public:
  // `sink` may be null. `operation` as in DecisionRecord.
  DecisionScope(DecisionSink* sink, std::uint32_t notificationCode, std::string_view kernelOperation = {}) noexcept;
  ~DecisionScope();
  DecisionScope(const DecisionScope&) = delete;
  DecisionScope& operator=(const DecisionScope&) = delete;

  // This thread's innermost scope if it has observers; otherwise null.
  static DecisionScope* Current() noexcept;
  // Called by the judge.
  void Judged(JudgedEvent event) noexcept { judged = std::move(event); }
  // Passes on the record if the event was judged and there are observers. Call it once, after the call of the module.
  void End(const DecisionEnd& end) noexcept;

 private:
  DecisionSink* const sink;  // null: no observers
  DecisionScope* const outer;
  const std::uint32_t code;
  const std::string_view operation;
  JudgedEvent judged;
};

}  // namespace fenlux::refhost
