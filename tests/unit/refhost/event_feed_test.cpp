// What watchers get from the feed, and what a slow watcher loses.
#include "refhost/app/watch/event_feed.h"

#include <gtest/gtest.h>

#include <thread>

#include "refhost/services/events/event_record.h"

namespace fenlux::refhost {
namespace {

const EventFeed::Clock::time_point kStart = EventFeed::Clock::time_point() + std::chrono::hours(1);

class Feed : public ::testing::Test {
 protected:
  static DecisionRecord Record(std::uint32_t code, const std::wstring& path = L"/srv/a", bool refused = false) {
    auto event = std::make_shared<EventRecord>();
    event->SetPath(path);
    DecisionRecord record;
    record.code = code;
    record.judged.event = event;
    record.end.refused = refused;
    return record;
  }
  static std::vector<std::uint32_t> Codes(const EventFeed::Batch& batch) {
    std::vector<std::uint32_t> codes;
    for (const DecisionRecord& record : batch.events) codes.push_back(record.code);
    return codes;
  }
  // Starts watching and returns the position of the next event.
  std::uint64_t Begin() { return feed->Read(std::nullopt, {}, kStart).next; }

  std::shared_ptr<DecisionSink> sink = std::make_shared<DecisionSink>();
  std::shared_ptr<EventFeed> feed = std::make_shared<EventFeed>(sink);
};

TEST_F(Feed, CostsNothingWhileNobodyWatches) {
  EXPECT_EQ(sink->Interest(), DecisionInterest::kNone);
  Begin();
  EXPECT_EQ(sink->Interest(), DecisionInterest::kAll);
  feed->EndIfIdle(kStart + EventFeed::kIdleTime - std::chrono::milliseconds(1));
  EXPECT_EQ(sink->Interest(), DecisionInterest::kAll);
  feed->EndIfIdle(kStart + EventFeed::kIdleTime);
  EXPECT_EQ(sink->Interest(), DecisionInterest::kNone);
}

TEST_F(Feed, GivesEveryWatcherTheEventsSinceItsLastRequest) {
  const std::uint64_t first = Begin();
  sink->Report(Record(1));
  const std::uint64_t second = Begin();
  sink->Report(Record(2));
  const EventFeed::Batch both = feed->Read(first, {}, kStart);
  EXPECT_EQ(Codes(both), (std::vector<std::uint32_t>{1, 2}));
  EXPECT_EQ(both.lost, 0u);
  EXPECT_FALSE(both.more);
  EXPECT_EQ(Codes(feed->Read(second, {}, kStart)), (std::vector<std::uint32_t>{2}));
  EXPECT_EQ(Codes(feed->Read(both.next, {}, kStart)), (std::vector<std::uint32_t>{}));
}

TEST_F(Feed, SelectsByRefusalCodePathAndProgram) {
  const std::uint64_t from = Begin();
  sink->Report(Record(1, L"/srv/a.txt"));
  sink->Report(Record(2, L"/srv/a.secret", true));
  sink->Report(Record(3, L"/home/b.secret"));
  WatchFilter filter;
  filter.refusedOnly = true;
  EXPECT_EQ(Codes(feed->Read(from, filter, kStart)), (std::vector<std::uint32_t>{2}));
  filter = {};
  filter.code = 3;
  EXPECT_EQ(Codes(feed->Read(from, filter, kStart)), (std::vector<std::uint32_t>{3}));
  filter = {};
  filter.path = Glob("*.secret");
  EXPECT_EQ(Codes(feed->Read(from, filter, kStart)), (std::vector<std::uint32_t>{2, 3}));
  filter.path = Glob("/srv/**");
  EXPECT_EQ(Codes(feed->Read(from, filter, kStart)), (std::vector<std::uint32_t>{1, 2}));
  filter.process = Glob("/usr/bin/cat");
  EXPECT_EQ(Codes(feed->Read(from, filter, kStart)), (std::vector<std::uint32_t>{}));
}

TEST_F(Feed, CountsWhatASlowWatcherLost) {
  const std::uint64_t from = Begin();
  const std::uint64_t sent = EventFeed::kMaxEvents + 100;
  for (std::uint64_t number = 0; number < sent; ++number) sink->Report(Record(static_cast<std::uint32_t>(number)));
  std::uint64_t lost = 0;
  std::uint64_t received = 0;
  EventFeed::Batch batch;
  batch.next = from;
  do {
    batch = feed->Read(batch.next, {}, kStart);
    EXPECT_LE(batch.events.size(), EventFeed::kMaxBatch);
    lost += batch.lost;
    received += batch.events.size();
  } while (batch.more);
  EXPECT_EQ(lost, 100u);
  EXPECT_EQ(received, EventFeed::kMaxEvents);
  EXPECT_FALSE(batch.unwatched);
}

TEST_F(Feed, KeepsFewerEventsIfTheirNamesAreLong) {
  const std::uint64_t from = Begin();
  const std::wstring longPath(32'000, L'a');
  constexpr std::uint32_t kSent = 400;
  for (std::uint32_t number = 0; number < kSent; ++number) sink->Report(Record(number, longPath));
  const EventFeed::Batch batch = feed->Read(from, {}, kStart);
  EXPECT_GT(batch.lost, kSent / 2);
  EXPECT_EQ(batch.lost + batch.events.size(), kSent);
}

TEST_F(Feed, SaysIfNobodyWatchedInBetween) {
  const std::uint64_t from = Begin();
  sink->Report(Record(1));
  feed->EndIfIdle(kStart + EventFeed::kIdleTime);
  sink->Report(Record(2));  // nobody sees this one
  const std::uint64_t other = Begin();
  sink->Report(Record(3));
  const EventFeed::Batch slow = feed->Read(from, {}, kStart);
  EXPECT_TRUE(slow.unwatched);
  EXPECT_GE(slow.lost, 1u);
  EXPECT_EQ(Codes(slow), (std::vector<std::uint32_t>{3}));
  EXPECT_FALSE(feed->Read(other, {}, kStart).unwatched);
  EXPECT_FALSE(feed->Read(slow.next, {}, kStart).unwatched);
}

TEST_F(Feed, TreatsANumberFromAnEarlierHostAsAFirstRequest) {
  Begin();
  sink->Report(Record(1));
  const EventFeed::Batch batch = feed->Read(1'000'000, {}, kStart);
  EXPECT_EQ(batch.lost, 0u);
  EXPECT_TRUE(batch.events.empty());
  EXPECT_LE(batch.next, 2u);
}

TEST_F(Feed, LosesAndRepeatsNothingWhileManyThreadsReport) {
  std::uint64_t from = Begin();
  constexpr int kThreads = 4;
  constexpr int kEach = 1000;
  std::vector<std::thread> threads;
  for (int thread = 0; thread < kThreads; ++thread) {
    threads.emplace_back([this] {
      for (int number = 0; number < kEach; ++number) sink->Report(Record(1));
    });
  }
  std::uint64_t seen = 0;
  while (seen < kThreads * kEach) {
    const EventFeed::Batch batch = feed->Read(from, {}, kStart);
    seen += batch.events.size() + batch.lost;
    from = batch.next;
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(seen, std::uint64_t{kThreads} * kEach);
}

}  // namespace
}  // namespace fenlux::refhost
