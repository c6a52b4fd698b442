// Keeps the newest events, and selects from them.
#include "refhost/app/watch/event_feed.h"

#include <algorithm>
#include <utility>

#include "refhost/services/events/event_record.h"

namespace fenlux::refhost {
namespace {

// How many events are copied under the lock at a time; delivery threads may wait for it.
constexpr std::size_t kChunk = 64;

std::size_t BytesOf(const DecisionRecord& record) {
  if (record.judged.event == nullptr) return sizeof(record);
  const EventData& event = record.judged.event->Data();
  return sizeof(record) + sizeof(event) + event.commandLine.size() +
         sizeof(wchar_t) * (event.imagePath.size() + event.path.size() + event.secondPath.size());
}

}  // namespace

bool WatchFilter::Matches(const DecisionRecord& record) const {
  if (refusedOnly && !record.IsRefusal()) return false;
  if (code && *code != record.code) return false;
  if (!path && !process) return true;
  if (record.judged.event == nullptr) return false;
  const EventData& event = record.judged.event->Data();
  if (path && !path->Matches(event.path) && (event.secondPath.empty() || !path->Matches(event.secondPath)))
    return false;
  return !process || process->Matches(event.imagePath);
}

EventFeed::Batch EventFeed::Read(std::optional<std::uint64_t> from, const WatchFilter& filter, Clock::time_point now) {
  {
    const MutexLock lock(watchMutex);
    lastRead = now;
    if (const std::shared_ptr<DecisionSink> to = sink.lock(); to != nullptr && !watching) {
      to->Attach(shared_from_this(), DecisionInterest::kAll);
    }
    watching = true;
  }
  Batch batch;
  if (!from) {
    const MutexLock lock(mutex);
    batch.next = end;
    return batch;
  }
  batch.next = *from;
  do {
    const std::uint64_t begin = batch.next;
    for (DecisionRecord& record : Copy(begin, batch)) {
      if (filter.Matches(record)) batch.events.push_back(std::move(record));
    }
  } while (batch.more && batch.events.size() + kChunk <= kMaxBatch);
  return batch;
}

std::vector<DecisionRecord> EventFeed::Copy(std::uint64_t from, Batch& batch) const {
  std::vector<DecisionRecord> copied;
  copied.reserve(kChunk);
  const MutexLock lock(mutex);
  const std::uint64_t first = end - kept.size();
  // A number beyond the end comes from an earlier host.
  const std::uint64_t begin = from > end ? end : std::max(from, first);
  if (from <= end) batch.lost += begin - from;
  batch.unwatched = batch.unwatched || from < unwatchedUntil;
  const std::uint64_t stop = std::min<std::uint64_t>(end, begin + kChunk);
  for (std::uint64_t number = begin; number < stop; ++number) {
    copied.push_back(kept[static_cast<std::size_t>(number - first)].record);
  }
  batch.next = stop;
  batch.more = stop < end;
  return copied;
}

void EventFeed::EndIfIdle(Clock::time_point now) {
  const MutexLock lock(watchMutex);
  if (!watching || now - lastRead < kIdleTime) return;
  if (const std::shared_ptr<DecisionSink> from = sink.lock(); from != nullptr) from->Detach(shared_from_this());
  watching = false;
  std::deque<Kept> freed;
  {
    const MutexLock feedLock(mutex);
    freed.swap(kept);
    bytes = 0;
    unwatchedUntil = ++end;
  }
}

void EventFeed::Observe(const DecisionRecord& record) noexcept {
  std::vector<Kept> old;  // freed after the lock
  try {
    Kept added{record, BytesOf(record)};
    old.reserve(4);
    const std::size_t size = added.bytes;
    const MutexLock lock(mutex);
    kept.push_back(std::move(added));
    bytes += size;
    ++end;
    while (kept.size() > 1 && (kept.size() > kMaxEvents || bytes > kMaxBytes)) {
      bytes -= kept.front().bytes;
      if (old.size() < old.capacity()) old.push_back(std::move(kept.front()));
      kept.pop_front();
    }
  } catch (const std::bad_alloc&) {  // watchers miss the event
  }
}

}  // namespace fenlux::refhost
