// Many threads open ordinary and refused files at once: every open ends as the rules say, and the totals add up.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "tests/integration/host_process.h"
#include "tests/integration/kernel_events_missing.h"

namespace fenlux::testing {
namespace {

constexpr int kOpensPerThread = 5;

// A quick run by default; docs/operations.md has the command for 1,000 threads.
int ThreadCount() {
  const char* const text = std::getenv("FENLUX_STORM_THREADS");
  return text == nullptr ? 60 : std::atoi(text);
}

// The errno of an open, or 0.
int Open(const std::string& path) {
  const int file = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (file < 0) return errno;
  ::close(file);
  return 0;
}

// What happened to the opens of all threads.
struct Storm {
  int opens = 0;
  int refused = 0;
  int wrong = 0;  // neither as the rules say
};

// Every thread opens the two files in turn.
Storm OpenFromManyThreads(const std::string& ordinary, const std::string& secret) {
  const int threadCount = ThreadCount();
  std::atomic<bool> go{false};
  std::atomic<int> refused{0};
  std::atomic<int> wrong{0};
  std::vector<std::thread> threads;
  for (int thread = 0; thread < threadCount; ++thread) {
    threads.emplace_back([&, thread] {
      while (!go) std::this_thread::yield();
      for (int count = 0; count < kOpensPerThread; ++count) {
        const bool refuse = (thread + count) % 2 == 0;
        const int result = Open(refuse ? secret : ordinary);
        if (result == EPERM) ++refused;
        if (result != (refuse ? EPERM : 0)) ++wrong;
      }
    });
  }
  go = true;
  for (std::thread& thread : threads) thread.join();
  return {threadCount * kOpensPerThread, refused, wrong};
}

// A directory with an ordinary and a secret file, and a host that refuses the secret one.
class OpenStorm : public ::testing::Test {
 protected:
  void SetUp() override {
    if (const std::string missing = KernelEventsMissing(); !missing.empty()) GTEST_SKIP() << missing;
  }

  // The deadline is so long that no event is late, however slow the machine is.
  void WriteHost(const std::string& more = {}) {
    setup.WriteHost(
        "[emulator]\nsource = 'fanotify'\ndeadline_ms = 300000\n[emulator.kernel]\nthreads = 4\n"
        "[policy]\ndirectories = ['" +
        directory +
        "']\n"
        "[[judging.rules]]\npath = '*.secret'\ndecision = 3\n" +
        more);
  }
  // Checks that the host counted what the storm saw.
  void ExpectCounted(const Storm& storm, const std::string& before, const Outcome& outcome) {
    const auto grown = [&](const std::string& value) {
      return std::stoi(JsonValue(outcome.out, "summary.kernel." + value)) -
             std::stoi(JsonValue(before, "kernel." + value));
    };
    EXPECT_EQ(storm.wrong, 0);
    EXPECT_EQ(grown("events"), storm.opens);
    EXPECT_EQ(grown("refused"), storm.refused);
    EXPECT_EQ(JsonValue(outcome.out, "summary.notifications.adds_up"), "true");
    EXPECT_EQ(JsonValue(outcome.out, "summary.notifications.late"), "0");
    EXPECT_EQ(JsonValue(outcome.out, "summary.unjudged_refused"), "0");
  }
  static int DecisionLogCount(const std::string& summary, const std::string& name) {
    return std::stoi(JsonValue(summary, "summary.decision_log." + name));
  }

  const HostSetup setup;
  const std::string directory = setup.Directory("watched");
  const std::string ordinary = setup.Write("watched/plain.txt", "words\n");
  const std::string secret = setup.Write("watched/diary.secret", "words\n");
};

TEST_F(OpenStorm, EveryOpenEndsAsTheRulesSayAndTheTotalsAddUp) {
  WriteHost();
  HostProcess host(setup, RunArguments(setup, {"--json"}));
  ASSERT_TRUE(Eventually([&] { return Open(secret) != 0; })) << host.Err();
  const std::string before = setup.ControlJson({"summary"});
  const Storm storm = OpenFromManyThreads(ordinary, secret);
  const Outcome outcome = host.Stop();
  EXPECT_EQ(outcome.code, 0) << outcome.err;
  ExpectCounted(storm, before, outcome);
  const std::string refused = JsonValue(outcome.out, "summary.kernel.refused");
  EXPECT_EQ(JsonValue(outcome.out, "summary.decision_log.records"), refused);
  // A busy machine may not have written every line before the summary.
  const std::size_t written = CountOf(outcome.err, "\"result\":\"refused\"");
  EXPECT_GE(written, static_cast<std::size_t>(DecisionLogCount(outcome.out, "written")));
  EXPECT_EQ(DecisionLogCount(outcome.out, "lost"), 0);
  EXPECT_EQ(DecisionLogCount(outcome.out, "written") + DecisionLogCount(outcome.out, "waiting"), std::stoi(refused));
}

TEST_F(OpenStorm, AFullDiskUnderTheLogChangesNoVerdict) {
  WriteHost("[log]\nfile = '/dev/full'\n");
  HostProcess host(setup, RunArguments(setup, {"--json", "--insecure-permissions"}));
  ASSERT_TRUE(Eventually([&] { return Open(secret) != 0; })) << host.Err();
  const std::string before = setup.ControlJson({"summary"});
  const Storm storm = OpenFromManyThreads(ordinary, secret);
  const Outcome outcome = host.Stop();
  EXPECT_EQ(outcome.code, 0) << outcome.err;
  ExpectCounted(storm, before, outcome);
  const std::string refused = JsonValue(outcome.out, "summary.kernel.refused");
  EXPECT_EQ(JsonValue(outcome.out, "summary.decision_log.records"), refused);
  EXPECT_EQ(DecisionLogCount(outcome.out, "lost") + DecisionLogCount(outcome.out, "waiting"), std::stoi(refused));
  EXPECT_GT(DecisionLogCount(outcome.out, "lost"), 0);
  EXPECT_EQ(DecisionLogCount(outcome.out, "written"), 0);
  EXPECT_TRUE(Contains(outcome.err, "log lines are lost")) << outcome.err;
}

}  // namespace
}  // namespace fenlux::testing
