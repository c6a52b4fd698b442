// Judged events as they happen, for `ctl watch`.
//
// Watchers poll for the events since their last poll, so the feed never waits for them: it keeps the newest events,
// and a watcher that polls too late loses the older ones. While nobody watches, the feed costs nothing.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "common/mutex.h"
#include "refhost/base/text/glob.h"
#include "refhost/services/events/decision_sink.h"

namespace fenlux::refhost {

// What a watcher wants to see; everything if nothing is set.
struct WatchFilter {
  bool refusedOnly = false;
  std::optional<std::uint32_t> code;
  std::optional<Glob> path;
  std::optional<Glob> process;

  bool Matches(const DecisionRecord& record) const;
};

// Any thread.
class EventFeed final : public DecisionObserver, public std::enable_shared_from_this<EventFeed> {
 public:
  using Clock = std::chrono::steady_clock;
  // The feed keeps at most this many events, and fewer if their names are long.
  static constexpr std::size_t kMaxEvents = 8192;
  static constexpr std::size_t kMaxBytes = std::size_t{8} << 20;
  // At most this many events are returned at once.
  static constexpr std::size_t kMaxBatch = 500;
  // A watcher that has not polled for this long is assumed to have ended.
  static constexpr std::chrono::seconds kIdleTime{5};

  explicit EventFeed(const std::shared_ptr<DecisionSink>& decisionSink) : sink(decisionSink) {}

  struct Batch {
    std::vector<DecisionRecord> events;
    std::uint64_t next = 0;  // where to read on
    std::uint64_t lost = 0;  // events since `from` that are no longer kept, whether they match or not
    bool more = false;       // more events are available
    bool unwatched = false;  // for some time after `from` nobody watched, so more are lost than counted
  };
  // Returns the kept events from number `from` on that match the filter. Without `from`, the watch begins with the next
  // event. Throws std::bad_alloc.
  Batch Read(std::optional<std::uint64_t> from, const WatchFilter& filter, Clock::time_point now);
  // Stops keeping events if nobody has read for kIdleTime. Call it periodically.
  void EndIfIdle(Clock::time_point now);

  void Observe(const DecisionRecord& record) noexcept override;

 private:
  struct Kept {
    DecisionRecord record;
    std::size_t bytes = 0;
  };

  // Copies a few events, so that the lock is held only briefly.
  std::vector<DecisionRecord> Copy(std::uint64_t from, Batch& batch) const;

  const std::weak_ptr<DecisionSink> sink;  // not owned: while somebody watches, the sink owns the feed
  mutable Mutex mutex;
  std::deque<Kept> kept FENLUX_GUARDED_BY(mutex);
  std::size_t bytes FENLUX_GUARDED_BY(mutex) = 0;
  std::uint64_t end FENLUX_GUARDED_BY(mutex) = 0;             // the number of the next event
  std::uint64_t unwatchedUntil FENLUX_GUARDED_BY(mutex) = 0;  // no events were kept just before this number
  // Taken before the sink's lock, never by a delivery thread.
  Mutex watchMutex FENLUX_ACQUIRED_BEFORE(mutex);
  bool watching FENLUX_GUARDED_BY(watchMutex) = false;
  Clock::time_point lastRead FENLUX_GUARDED_BY(watchMutex);
};

}  // namespace fenlux::refhost
