// Allocation failures in the kernel's event source: every allocation fails once. No event may be left without an
// answer, and no directory marked without its paths being known. If the machine does not allow kernel events, the tests
// are skipped with the reason.
#include <sys/mount.h>
#include <unistd.h>

#include <cerrno>
#include <iostream>
#include <new>

#include "refhost/emulator/sources/kernel/kernel_event.h"
#include "tests/support/allocation_exemption.h"
#include "tests/support/failing_allocations.h"
#include "tests/unit/emulator/kernel_events_test.h"
#include "tests/unit/emulator/mark_group.h"

namespace fenlux::testing {
namespace {

using refhost::Descriptor;
using refhost::EventPaths;
using refhost::FanotifyMarks;
using ::testing::IsSubsetOf;
using ::testing::Optional;
using ::testing::UnorderedElementsAre;

// Runs the action with each of its allocations failing once, and then without a failure; checks the result each time.
// Returns how many failed. `failed` says whether the action threw.
template <typename Action, typename Check>
std::size_t FailEachAllocation(const Action& action, const Check& check) {
  for (std::size_t n = 1;; ++n) {
    bool threw = false;
    bool reached = false;
    {
      const FailingAllocations failing(AllocatingThreads::kThis, n);
      try {
        action();
      } catch (const std::bad_alloc&) {
        threw = true;
      }
      reached = failing.Failed();
    }
    SCOPED_TRACE("allocation " + std::to_string(n));
    check(threw);
    if (!reached || ::testing::Test::HasFailure()) {
      EXPECT_FALSE(threw);
      return n - 1;
    }
  }
}

class KernelAllocationFailures : public KernelEvents {
 protected:
  // Mounts the test's directory at a second path, and returns that path.
  std::string BindMount() {
    const std::string view = otherDirectory.Path().string();
    EXPECT_EQ(::mount(directory.Path().c_str(), view.c_str(), nullptr, MS_BIND, nullptr), 0);
    return view;
  }
  void TearDown() override {
    KernelEvents::TearDown();
    ::umount2(otherDirectory.Path().c_str(), MNT_DETACH);
  }

  const TemporaryDirectory otherDirectory;
};

TEST_F(KernelAllocationFailures, AreReportedByThePathLookup) {
  const std::string removed = directory.MakeFile("removed").string();
  const Descriptor own(::open(file.c_str(), O_RDONLY | O_CLOEXEC));
  const Descriptor gone(::open(removed.c_str(), O_RDONLY | O_CLOEXEC));
  const Descriptor foreign(::open((BindMount() + "/ordinary.txt").c_str(), O_RDONLY | O_CLOEXEC));
  ASSERT_EQ(::unlink(removed.c_str()), 0);
  EventPaths paths;
  paths.Replace(Watched({directory.Path().string()}), {});
  const std::pair<int, std::string> cases[] = {{own.Get(), file}, {gone.Get(), removed}, {foreign.Get(), file}};
  std::size_t failures = 0;
  for (const auto& [descriptor, expected] : cases) {
    std::optional<std::string> path;
    const std::size_t ofThisCase = FailEachAllocation(
        [&paths, &path, number = descriptor] {
          path.reset();
          path = paths.PathOf(number);
        },
        [&path, &text = expected](bool failed) {
          if (!failed) {
            EXPECT_THAT(path, Optional(text));
          }
        });
    EXPECT_GT(ofThisCase, 0u) << expected;
    failures += ofThisCase;
  }
  std::cout << "paths of events: " << failures << " allocations failed\n";
}

TEST_F(KernelAllocationFailures, AreReportedByTheNotificationBuilder) {
  fanotify_event_metadata event{};
  event.mask = FAN_OPEN_PERM;
  Bytes expected;
  refhost::BuildKernelNotification(event, file, expected);
  Bytes message;
  const std::size_t failures = FailEachAllocation(
      [&] {
        message = {};
        refhost::BuildKernelNotification(event, file, message);
      },
      [&](bool failed) {
        if (!failed) {
          EXPECT_TRUE(SameBytes(expected, message));
        }
      });
  EXPECT_GT(failures, 1u);
  std::cout << "notification of a kernel event: " << failures << " allocations failed\n";
}

class MarkAllocationFailures : public KernelAllocationFailures {
 protected:
  void MakeMarks() {
    group.emplace();
    paths.emplace();
    marks.emplace(group->Get(), MarkGroup::kMask, true, *paths);
  }

  std::optional<MarkGroup> group;
  std::optional<EventPaths> paths;
  std::optional<FanotifyMarks> marks;
  const std::string first = directory.MakeDirectory("first").string();
  const std::string below = directory.MakeDirectory("first/below").string();
  const std::string second = directory.MakeDirectory("second").string();
  const std::string inBelow = directory.MakeFile("first/below/file").string();
  const std::string inSecond = directory.MakeFile("second/file").string();
};

TEST_F(MarkAllocationFailures, LeaveNoMarkWithoutAPathAndTheNextSetCompletesThem) {
  const std::set<ino_t> all{InodeOf(first), InodeOf(below), InodeOf(second)};
  const std::size_t failures = FailEachAllocation(
      [&] {
        {
          const AllocationExemption spared;
          MakeMarks();
          marks->Set({second});
        }
        marks->Set({first});  // adds two and removes one
      },
      [&](bool failed) {
        EXPECT_THAT(group->Inodes(), IsSubsetOf(all));
        if (group->Inodes().contains(InodeOf(below))) {
          EXPECT_THAT(EstablishedPath(*paths, inBelow), Optional(inBelow));
        }
        if (group->Inodes().contains(InodeOf(second))) {
          EXPECT_THAT(EstablishedPath(*paths, inSecond), Optional(inSecond));
        }
        if (failed) marks->Set({first});
        EXPECT_THAT(group->Inodes(), UnorderedElementsAre(InodeOf(first), InodeOf(below)));
        marks->Set({second});
        EXPECT_THAT(group->Inodes(), UnorderedElementsAre(InodeOf(second)));
        EXPECT_EQ(marks->States(), (std::vector<refhost::WatchState>{{second, true, {}}}));
      });
  EXPECT_GT(failures, 20u);
  std::cout << "setting marks: " << failures << " allocations failed\n";
}

TEST_F(MarkAllocationFailures, DoNotPreventTheNextRoundFromFindingNewDirectories) {
  const std::string added = first + "/added";
  const std::size_t failures = FailEachAllocation(
      [&] {
        {
          const AllocationExemption spared;
          MakeMarks();
          ::rmdir(added.c_str());
          marks->Set({first, second});
          directory.MakeDirectory("first/added");
          ::unlink(inSecond.c_str());
          ::rmdir(second.c_str());
          directory.MakeDirectory("second");
          directory.MakeFile("second/file");
        }
        marks->Renew();
      },
      [&](bool failed) {
        if (failed) marks->Renew();
        for (const std::string& path : {first, below, added, second}) {
          EXPECT_TRUE(group->Inodes().contains(InodeOf(path))) << path;
        }
        EXPECT_THAT(EstablishedPath(*paths, inSecond), Optional(inSecond));
        EXPECT_EQ(marks->States(), (std::vector<refhost::WatchState>{{first, true, {}}, {second, true, {}}}));
      });
  EXPECT_GT(failures, 10u);
  std::cout << "renewing marks: " << failures << " allocations failed\n";
}

// Every event gets an answer, and the next one is judged.
TEST_F(KernelAllocationFailures, DoNotLeaveAnEventUnanswered) {
  settings.kernel.threads = 1;
  const std::string foreign = BindMount() + "/ordinary.txt";
  OpenedWithVerdict(4);
  std::size_t failures = 0;
  for (const std::string& path : {file, foreign}) {
    ASSERT_EQ(other.Perform(path), EPERM);
    for (std::size_t n = 1;; ++n) {
      SCOPED_TRACE("allocation " + std::to_string(n) + " for " + path);
      int result = -1;
      bool failed = false;
      {
        const FailingAllocations failing(AllocatingThreads::kOthers, n);
        result = other.Perform(path);
        failed = failing.Failed();
      }
      if (result != EPERM) {
        EXPECT_EQ(result, 0);
      }
      EXPECT_EQ(other.Perform(path), EPERM);
      if (!failed || HasFailure()) break;
      ++failures;
    }
  }
  Emulator().Stop();
  EXPECT_GT(Totals().Unjudged(UnjudgedCause::kNotBuilt), 5u);
  EXPECT_EQ(Totals().Unjudged(UnjudgedCause::kPathNotEstablished), 0u);
  EXPECT_GT(failures, 10u);
  std::cout << "handling kernel events: " << failures << " allocations failed\n";
}

}  // namespace
}  // namespace fenlux::testing
