// Reading permission events when some of them cannot be read. If the machine does not allow such events, the tests are
// skipped with the reason.
#include <fcntl.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <sys/ioctl.h>

#include <cerrno>
#include <cstring>

#include "refhost/emulator/sources/kernel/fanotify_group.h"
#include "tests/unit/emulator/kernel_events_test.h"

namespace fenlux::testing {
namespace {

using refhost::Descriptor;
using refhost::FanotifyGroup;
using refhost::ReadResult;

class FanotifyGroupTest : public KernelEvents {
 protected:
  // Blocks until this many events are queued.
  static bool AwaitQueued(const FanotifyGroup& group, int count) {
    const auto deadline = std::chrono::steady_clock::now() + kTestTimeout;
    for (int bytes = 0; bytes < count * static_cast<int>(sizeof(fanotify_event_metadata));) {
      if (::ioctl(group.Get(), FIONREAD, &bytes) != 0 || std::chrono::steady_clock::now() >= deadline) return false;
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
  }

  refhost::EmulatedDriver driver{settings, {}, {}};
};

TEST_F(FanotifyGroupTest, DistinguishesAnUnreadableEventFromAnEmptyQueue) {
  ::signal(SIGIO, SIG_IGN);  // sent to the owner of the lease when another open waits for the file
  Descriptor leased(::open(file.c_str(), O_RDWR | O_CLOEXEC));
  if (::fcntl(leased.Get(), F_SETLEASE, F_WRLCK) != 0) GTEST_SKIP() << "no leases here: " << std::strerror(errno);
  const Descriptor wake(::eventfd(0, EFD_CLOEXEC));
  refhost::SpareDescriptor spare(wake.Get());
  fanotify_event_metadata event{};
  {
    FanotifyGroup group(UnjudgedPolicy::kAllow, driver);
    ASSERT_EQ(::fanotify_mark(group.Get(), FAN_MARK_ADD | FAN_MARK_ONLYDIR, FAN_OPEN_PERM | FAN_EVENT_ON_CHILD,
                              AT_FDCWD, directory.Path().c_str()),
              0);
    EXPECT_EQ(group.Read(spare, event), ReadResult::kNothing);
    other.Begin(file);
    ASSERT_TRUE(AwaitQueued(group, 1));
    another.Begin(file);
    ASSERT_TRUE(AwaitQueued(group, 2));
    EXPECT_EQ(group.Read(spare, event), ReadResult::kFailed);
    EXPECT_EQ(group.Read(spare, event), ReadResult::kNothing);
    EXPECT_EQ(other.Result(), EPERM);
    EXPECT_EQ(another.Result(), EPERM);

    leased.Reset();
    other.Begin(file);
    ASSERT_TRUE(AwaitQueued(group, 1));
    ASSERT_EQ(group.Read(spare, event), ReadResult::kEvent);
    group.Respond(event.fd, false);
    spare.TakeFrom(event.fd);
    EXPECT_EQ(other.Result(), 0);
  }
  EXPECT_TRUE(driver.Totals().Snapshot().AddsUp());
}

}  // namespace
}  // namespace fenlux::testing
