// The mutex with one stripe per group of reading threads.
#include "common/striped_mutex.h"

#include <atomic>
#include <chrono>
#include <functional>
#include <future>
#include <memory>
#include <thread>
#include <utility>
#include <vector>

#include "common/detached_thread.h"
#include "tests/support/test_timeout.h"
#include "tests/unit/module/module_test.h"

namespace fenlux::testing {
namespace {

// Runs the body on a thread of its own. The body may outlive the test if it is blocked, so it owns what it uses.
std::future<void> OnAnotherThread(std::function<void()> body) {
  std::promise<void> done;
  std::future<void> ended = done.get_future();
  StartDetachedThread([body = std::move(body), done = std::move(done)]() mutable {
    body();
    done.set_value();
  });
  return ended;
}

bool Ends(const std::future<void>& thread) { return thread.wait_for(kTestTimeout) == std::future_status::ready; }

// Many threads that live at the same time, so that their ids differ. Each takes the mutex once, for reading.
class Readers {
 public:
  explicit Readers(const std::shared_ptr<StripedMutex>& mutex) {
    for (int thread = 0; thread < kCount; ++thread) {
      StartDetachedThread([mutex, shared = state, end = ended] {
        { const ReaderLock lock(*mutex); }
        const int read = ++shared->read;
        if (read == 1) shared->first.set_value();
        if (read == kCount) shared->all.set_value();
        end.wait();
      });
    }
  }
  ~Readers() { state->end.set_value(); }
  Readers(const Readers&) = delete;
  Readers& operator=(const Readers&) = delete;

  const std::future<void>& First() const { return first; }  // a thread has had the mutex
  const std::future<void>& All() const { return all; }      // every thread has had the mutex

 private:
  static constexpr int kCount = 32;
  // Owned by the threads, too, because a blocked one may outlive the test.
  struct State {
    std::atomic<int> read{0};
    std::promise<void> first;
    std::promise<void> all;
    std::promise<void> end;
  };

  const std::shared_ptr<State> state = std::make_shared<State>();
  const std::shared_future<void> ended = state->end.get_future().share();
  const std::future<void> first = state->first.get_future();
  const std::future<void> all = state->all.get_future();
};

struct Counters {
  StripedMutex mutex;
  int first FENLUX_GUARDED_BY(mutex) = 0;
  int second FENLUX_GUARDED_BY(mutex) = 0;
};

}  // namespace

TEST(StripedMutex, ManyReadersSeeWhatOneWriterChangesAsAWhole) {
  constexpr int kReads = 200;
  constexpr int kChanges = 50;
  Counters counters;
  std::atomic<bool> torn{false};
  std::vector<std::thread> threads;
  for (int thread = 0; thread < 8; ++thread) {
    threads.emplace_back([&] {
      for (int read = 0; read < kReads; ++read) {
        {
          const ReaderLock lock(counters.mutex);
          if (counters.first != counters.second) torn = true;
        }
        std::this_thread::yield();
      }
    });
  }
  threads.emplace_back([&] {
    for (int read = 0; read < kReads; ++read) {
      {
        const SlowReaderLock lock(counters.mutex);
        if (counters.first != counters.second) torn = true;
      }
      std::this_thread::yield();
    }
  });
  for (int change = 0; change < kChanges; ++change) {
    const WriterLock lock(counters.mutex);
    ++counters.first;
    std::this_thread::yield();
    ++counters.second;
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_FALSE(torn);
  const ReaderLock lock(counters.mutex);
  EXPECT_EQ(counters.second, kChanges);
}

TEST(StripedMutex, WritersTakeTurns) {
  constexpr int kChanges = 300;
  Counters counters;
  std::vector<std::thread> threads;
  for (int thread = 0; thread < 4; ++thread) {
    threads.emplace_back([&] {
      for (int change = 0; change < kChanges; ++change) {
        const WriterLock lock(counters.mutex);
        ++counters.first;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  const ReaderLock lock(counters.mutex);
  EXPECT_EQ(counters.first, 4 * kChanges);
}

TEST(StripedMutex, ReadersGoOnDuringASlowReadEvenIfAWriterWaitsForIt) {
  const auto mutex = std::make_shared<StripedMutex>();
  std::future<void> writer;
  {
    const SlowReaderLock slow(*mutex);
    const auto writing = std::make_shared<std::promise<void>>();
    const std::future<void> started = writing->get_future();
    writer = OnAnotherThread([mutex, writing] {
      writing->set_value();
      const WriterLock lock(*mutex);
    });
    ASSERT_TRUE(Ends(started));
    const Readers readers(mutex);  // while the writer waits or is about to
    EXPECT_TRUE(Ends(readers.All())) << "a reader waited for the slow one";
    EXPECT_EQ(writer.wait_for(std::chrono::seconds(0)), std::future_status::timeout) << "the writer did not wait";
  }
  EXPECT_TRUE(Ends(writer));
}

TEST(StripedMutex, ReadersOfDifferentGroupsDoNotWaitForEachOther) {
  const auto mutex = std::make_shared<StripedMutex>();
  const ReaderLock lock(*mutex);
  const Readers readers(mutex);
  EXPECT_TRUE(Ends(readers.First())) << "every thread is of the same group";
}

}  // namespace fenlux::testing
