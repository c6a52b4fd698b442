// What the watchdog does while events queue up and no reader is free: it lets them through in rounds, and still
// enforces deadlines.
#include "refhost/emulator/driver/watchdog.h"

#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "refhost/emulator/driver/driver_port.h"
#include "refhost/emulator/sources/kernel/drain_round.h"
#include "tests/support/test_timeout.h"

namespace fenlux::testing {
namespace {

using namespace refhost;

TEST(DrainRound, EndsAsSoonAsAReaderReturns) {
  int left = 3;
  int letThrough = 0;
  EXPECT_FALSE(RunDrainRound([&] { return left > 0; },
                             [&] {
                               --left;
                               ++letThrough;
                               return true;
                             }));
  EXPECT_EQ(letThrough, 3);
}

TEST(DrainRound, EndsWhenTheQueueIsEmpty) {
  int queued = 5;
  EXPECT_FALSE(RunDrainRound([] { return true; }, [&] { return queued > 0 && queued-- > 0; }));
  EXPECT_EQ(queued, 0);
}

TEST(DrainRound, IsBounded) {
  std::size_t letThrough = 0;
  EXPECT_TRUE(RunDrainRound([] { return true; },
                            [&] {
                              ++letThrough;
                              return true;
                            }));
  EXPECT_EQ(letThrough, kDrainRound);
}

// A source whose queue is never empty.
class BusySource final : public EventSource {
 public:
  void Start() override {}
  void Watch(std::uint64_t, const std::vector<std::string>&) override {}
  bool OnWatchdog() override {
    ++rounds;
    return true;
  }
  void Stop(std::chrono::milliseconds) override {}

  std::atomic<int> rounds{0};
};

class Released final : public AnswerRelease {
 public:
  void Release(UnjudgedCause cause) noexcept override { promise.set_value(cause); }
  std::promise<UnjudgedCause> promise;
};

TEST(Watchdog, KeepsDeadlinesWhileTheSourceHasMoreToDo) {
  TotalsCounter totals;
  PendingAnswers answers(totals);
  SourceLink link;
  const auto source = std::make_shared<BusySource>();
  link.Attach(source);
  const auto port = std::make_shared<DriverPort>(PortRequest{});
  const auto slot = answers.MakeSlot();
  Released release;
  auto released = release.promise.get_future();

  // If the source did not report more work, the next round would start half a deadline later.
  Watchdog watchdog(kTestTimeout * 4, answers, link);
  watchdog.Start();
  while (source->rounds < 2) std::this_thread::yield();
  ASSERT_TRUE(slot->Open(port, 4097, std::chrono::steady_clock::now(), &release));
  ASSERT_EQ(released.wait_for(kTestTimeout), std::future_status::ready);
  EXPECT_EQ(released.get(), UnjudgedCause::kLate);
  watchdog.Stop();
  EXPECT_EQ(slot->TakeBack(), UnjudgedCause::kLate);
  EXPECT_TRUE(totals.Snapshot().AddsUp());
}

}  // namespace
}  // namespace fenlux::testing
