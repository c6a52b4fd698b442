// Hands one record of every judged event to those who want it: the decision log, watchers, metrics.
//
// What decided is known to the judge, and the verdict and the time to those who passed the notification to the module.
// Both are on the same thread: a DecisionScope lives there while the module works, takes the judgement from the judge,
// and hands on the record at the end. Without observers a scope does nothing; the event itself is never copied.
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

// What the judge knows of a judged event.
struct JudgedEvent {
  std::shared_ptr<const EventRecord> event;   // complete, and no longer changed
  std::shared_ptr<const RulesInForce> rules;  // by which it was judged
  const Rule* rule = nullptr;                 // of these: the one that decided; null: the default decision
  bool programUnknown = false;  // the rule's program pattern would have decided, but the program is not known
  Decision decision = Decision::kUndecided;
  bool refuses = false;  // the decision is one that refuses the operation
  bool enforced = true;  // false: it would, but decisions are not enforced: the module was told to let it pass
};

enum class DecisionResult {
  kAllowed,
  kRefused,
  kWouldRefuse,  // allowed, because decisions are not enforced
  kNoReply,      // the driver waits for no reply to this event: the decision has no effect
};

// What happened to the operation of an event.
struct DecisionEnd {
  std::uint32_t verdict = 0;            // that the driver received; 0: none
  bool refused = false;                 // the operation was refused
  bool wouldRefuse = false;             // it would have been, for want of a judgement, but refusals are not enforced
  std::string_view cause;               // why the reply did not count, such as "late"; empty: it did. Static text
  std::chrono::nanoseconds latency{0};  // from the delivery of the notification until its reply was received
};

// One event. Copying copies two handles. An event that was refused without a judgement has no `judged.event` and no
// `judged.rules`, but a cause.
struct DecisionRecord {
  std::chrono::system_clock::time_point time;
  std::uint32_t code = 0;  // of the notification
  std::uint64_t processId = 0;
  std::string_view operation;  // of the kernel: "open", "exec" or "read"; empty for other events. Static text
  JudgedEvent judged;
  DecisionEnd end;

  DecisionResult Result() const;
  // Whether the operation was refused, would have been, or should have been: what the decision log calls "refused".
  bool IsRefusal() const { return end.refused || end.wouldRefuse || judged.refuses; }
};

class DecisionObserver {
 public:
  virtual ~DecisionObserver() = default;
  // Receives one record. Called on the delivery thread, concurrently, after the module's reply and before the driver
  // gets it: must not block.
  virtual void Observe(const DecisionRecord& record) noexcept = 0;
};

// What an observer receives.
enum class DecisionInterest : std::uint8_t { kNone, kRefusals, kAll };

// Any thread.
class DecisionSink {
 public:
  // From now on, or with another interest than before. Throws std::bad_alloc.
  void Attach(const std::shared_ptr<DecisionObserver>& observer, DecisionInterest interest);
  // A call that is in progress may still end after this returns.
  void Detach(const std::shared_ptr<DecisionObserver>& observer);

  // The greatest interest of any observer.
  DecisionInterest Interest() const { return greatest.load(std::memory_order_relaxed); }
  // Hands the record to the observers that want it, and sets its time.
  void Report(DecisionRecord record) noexcept;

 private:
  struct Entry {
    std::shared_ptr<DecisionObserver> observer;
    DecisionInterest interest;
  };
  void Set(std::vector<Entry> next);

  Mutex changeMutex;  // one change at a time; nothing is guarded by it alone
  std::atomic<DecisionInterest> greatest{DecisionInterest::kNone};
  LiveValue<std::vector<Entry>> observers{std::vector<Entry>()};
};

// On the stack of the thread that passes a notification to the module, around that call.
class DecisionScope {
 public:
  // `sink` may be null. `operation` as in DecisionRecord.
  DecisionScope(DecisionSink* sink, std::uint32_t notificationCode, std::string_view kernelOperation = {}) noexcept;
  ~DecisionScope();
  DecisionScope(const DecisionScope&) = delete;
  DecisionScope& operator=(const DecisionScope&) = delete;

  // The innermost scope of this thread in which somebody is interested; null if there is none.
  static DecisionScope* Current() noexcept;
  // Called by the judge.
  void Judged(JudgedEvent event) noexcept { judged = std::move(event); }
  // Hands on the record, if the event was judged and somebody wants it. Once, after the module's call.
  void End(const DecisionEnd& end) noexcept;

 private:
  DecisionSink* const sink;  // null: nobody is interested
  DecisionScope* const outer;
  const std::uint32_t code;
  const std::string_view operation;
  JudgedEvent judged;
};

}  // namespace fenlux::refhost
