// Permission events that are not judged: no usable reply, a late one, no free reader, no connection, a stop.
#include <atomic>
#include <cerrno>
#include <stdexcept>
#include <thread>

#include "tests/unit/emulator/kernel_events_test.h"

namespace fenlux::testing {
namespace {

// Gives no reply, then throws, then gives a malformed reply, then one that says "not judged".
EmulatorTest::Handler UselessHandler() {
  return [calls = std::make_shared<std::atomic<int>>(0)](const Bytes&) -> std::shared_ptr<CBuf> {
    switch ((*calls)++) {
      case 0:
        return nullptr;
      case 1:
        throw std::runtime_error("no buffer");
      case 2:
        return Buffer(Bytes(3));
      default:
        return Buffer(Reply(8));
    }
  };
}

TEST_F(KernelEvents, AreRefusedWithoutAJudgementIfTheSettingSaysSo) {
  settings.unjudged = UnjudgedPolicy::kRefuse;
  handler = UselessHandler();
  Emulator();
  EXPECT_EQ(other.Perform(file), EPERM);  // no connection
  Opened();
  for (int i = 0; i < 4; ++i) EXPECT_EQ(other.Perform(file), EPERM);
  EXPECT_TRUE(OwnOpenSucceeds(file));
  Emulator().Stop();
  EXPECT_EQ(Totals().kernelRefusedUnjudged, 5u);
  for (const UnjudgedCause cause :
       {UnjudgedCause::kNoConnection, UnjudgedCause::kEmptyReply, UnjudgedCause::kHandlerThrew,
        UnjudgedCause::kMalformedReply, UnjudgedCause::kNotJudged, UnjudgedCause::kOwnProcess}) {
    EXPECT_EQ(Totals().Unjudged(cause), 1u) << refhost::UnjudgedCauseName(cause);
  }
}

TEST_F(KernelEvents, PassFromTheStartIfRefusalsAreNotEnforced) {
  settings.unjudged = UnjudgedPolicy::kRefuse;
  settings.refusalsEnforced = false;
  Emulator();
  EXPECT_EQ(other.Perform(file), 0);  // no connection
  Emulator().Stop();
  EXPECT_EQ(Totals().Unjudged(UnjudgedCause::kNoConnection), 1u);
  EXPECT_EQ(Totals().kernelRefused, 0u);
}

TEST_F(KernelEvents, PassIfTheModuleGivesNoAnswer) {
  handler = UselessHandler();
  Opened();
  for (int i = 0; i < 3; ++i) EXPECT_EQ(other.Perform(file), 0);
  Emulator().Stop();
  EXPECT_EQ(Totals().Unjudged(UnjudgedCause::kEmptyReply), 1u);
  EXPECT_EQ(Totals().Unjudged(UnjudgedCause::kHandlerThrew), 1u);
  EXPECT_EQ(Totals().Unjudged(UnjudgedCause::kMalformedReply), 1u);
}

// Waits until the totals satisfy the condition; false on timeout.
template <typename Condition>
bool AwaitTotals(DriverEmulator& emulator, const Condition& condition) {
  const auto deadline = std::chrono::steady_clock::now() + kTestTimeout;
  while (!condition(emulator.Totals())) {
    if (std::chrono::steady_clock::now() >= deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return true;
}

// A handler that blocks until the test opens its gate, and then refuses.
class HeldKernelEvents : public KernelEvents {
 protected:
  HeldKernelEvents() {
    handler = [gate = gate](const Bytes&) {
      gate->Pass();
      return Buffer(Reply(4));
    };
  }
};

TEST_F(HeldKernelEvents, PassAtTheDeadlineAndAreCountedLate) {
  settings.deadline = std::chrono::milliseconds(500);
  Opened();
  EXPECT_EQ(other.Perform(file), 0);
  EXPECT_EQ(Totals().late, 1u);
  gate->Open();
  std::uint64_t late = 1;
  while (other.Perform(file) != EPERM) ASSERT_LT(++late, 100u);  // on a busy machine, more are late
  Emulator().Stop();
  EXPECT_EQ(Totals().late, late);
  EXPECT_EQ(Totals().answered, 1u);
  EXPECT_EQ(Totals().kernelAllowed, late);
  EXPECT_EQ(Totals().kernelRefused, 1u);
}

TEST_F(HeldKernelEvents, AreRefusedAtTheDeadlineAndWhileReadersAreBusyIfTheSettingSaysSo) {
  settings.unjudged = UnjudgedPolicy::kRefuse;
  settings.deadline = std::chrono::milliseconds(50);
  settings.kernel.threads = 1;
  Opened();
  EXPECT_EQ(other.Perform(file), EPERM);  // late; the only reader is still inside the module
  EXPECT_EQ(another.Perform(file), EPERM);
  EXPECT_EQ(Totals().late, 1u);
  EXPECT_EQ(Totals().Unjudged(UnjudgedCause::kReadersBusy), 1u);
  EXPECT_EQ(Totals().kernelRefusedUnjudged, 2u);
  gate->Open();
}

TEST_F(HeldKernelEvents, PassWhenTheEmulatorStopsRegardlessOfTheSetting) {
  settings.unjudged = UnjudgedPolicy::kRefuse;
  settings.stopGrace = std::chrono::milliseconds(1);
  settings.kernel.threads = 1;
  Opened();
  other.Begin(file);
  gate->AwaitArrivals(1);
  another.Begin(file);
  another.AwaitBlockedOpen();
  Emulator().Stop();
  EXPECT_EQ(other.Result(), 0);
  EXPECT_EQ(another.Result(), 0);
  EXPECT_EQ(Totals().kernelRefusedUnjudged, 0u);
  gate->Open();
}

TEST_F(HeldKernelEvents, PassWhenTheConnectionEnds) {
  const auto port = Opened();
  other.Begin(file);
  gate->AwaitArrivals(1);
  port->Close();
  EXPECT_EQ(other.Result(), 0);
  EXPECT_EQ(Totals().Unjudged(UnjudgedCause::kConnectionEnded), 1u);
  gate->Open();
}

TEST_F(HeldKernelEvents, PassWhenTheEmulatorStops) {
  settings.stopGrace = std::chrono::milliseconds(1);
  settings.kernel.threads = 1;
  Opened();
  other.Begin(file);
  gate->AwaitArrivals(1);
  another.Begin(file);  // not read: the only reader is inside the module
  another.AwaitBlockedOpen();
  Emulator().Stop();
  EXPECT_EQ(other.Result(), 0);
  EXPECT_EQ(another.Result(), 0);
  EXPECT_EQ(other.Perform(file), 0);
  EXPECT_EQ(Totals().Unjudged(UnjudgedCause::kStopped), 1u);
  gate->Open();
}

TEST_F(HeldKernelEvents, AreAnsweredOnSeveralThreads) {
  settings.kernel.threads = 2;
  Opened();
  other.Begin(file);
  another.Begin(file);
  gate->AwaitArrivals(2);
  gate->Open();
  EXPECT_EQ(other.Result(), EPERM);
  EXPECT_EQ(another.Result(), EPERM);
}

TEST_F(HeldKernelEvents, DoNotWaitForBlockedReaders) {
  settings.deadline = std::chrono::milliseconds(50);
  settings.kernel.threads = 1;
  Opened();
  EXPECT_EQ(other.Perform(file), 0);  // late; the only reader is still inside the module
  EXPECT_EQ(another.Perform(file), 0);
  EXPECT_GE(Totals().Unjudged(UnjudgedCause::kReadersBusy), 1u);
  gate->Open();
}

TEST_F(KernelEvents, AHandlerThatOpensAWatchedFileDoesNotHang) {
  settings.deadline = std::chrono::milliseconds(50);
  settings.kernel.threads = 1;
  std::atomic<bool> opened{false};
  handler = [&](const Bytes&) {
    opened = OwnOpenSucceeds(file);
    return Buffer(Reply(4));
  };
  Opened();
  EXPECT_EQ(other.Perform(file), 0);
  EXPECT_TRUE(AwaitTotals(
      Emulator(), [](const EmulatorTotals& totals) { return totals.Unjudged(UnjudgedCause::kOwnProcess) == 1; }));
  Emulator().Stop();
  EXPECT_TRUE(opened);
  EXPECT_EQ(Totals().late, 1u);
  EXPECT_EQ(Totals().Unjudged(UnjudgedCause::kOwnProcess), 1u);
}

class StormEvents : public HeldKernelEvents {
 protected:
  OpenLoop storm;
};

TEST_F(StormEvents, PassOnlyUntilAReaderReturnsHoweverManyAreQueued) {
  settings.deadline = std::chrono::milliseconds(500);
  settings.kernel.threads = 1;
  Opened();
  storm.Begin(file);
  const auto busy = [](const EmulatorTotals& totals) { return totals.Unjudged(UnjudgedCause::kReadersBusy); };
  ASSERT_TRUE(AwaitTotals(Emulator(), [&](const EmulatorTotals& totals) { return busy(totals) >= 500; }));
  gate->Open();
  ASSERT_TRUE(AwaitTotals(Emulator(), [](const EmulatorTotals& totals) { return totals.answered > 0; }));
  const EmulatorTotals back = Totals();
  ASSERT_TRUE(AwaitTotals(Emulator(), [&](const EmulatorTotals& totals) {
    return totals.answered >= back.answered + 500 || totals.late > 1;
  }));
  const EmulatorTotals later = Totals();
  if (later.late > 1) GTEST_SKIP() << "the machine is so busy that the reader was late again";
  EXPECT_LE(busy(later) - busy(back), 1u);  // one may be in progress when the reader returns
}

}  // namespace
}  // namespace fenlux::testing
