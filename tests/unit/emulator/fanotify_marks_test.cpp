// Which directories are marked, even if they are renamed or deleted at the same time. If the machine does not allow
// fanotify, the tests are skipped with the reason.
#include <gmock/gmock.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/mount.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <functional>
#include <stdexcept>
#include <thread>
#include <vector>

#include "tests/support/temporary_directory.h"
#include "tests/unit/emulator/kernel_fixture.h"
#include "tests/unit/emulator/mark_group.h"

namespace fenlux::testing {
namespace {

using refhost::Descriptor;
using refhost::EventPaths;
using refhost::FanotifyMarks;
using refhost::WatchState;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

// Runs an action when a program opens a directory to list it, while that open is blocked.
class OnListing {
 public:
  OnListing(const std::string& directory, std::function<void()> action) {
    if (::fanotify_mark(group.Get(), FAN_MARK_ADD | FAN_MARK_ONLYDIR, FAN_OPEN_PERM | FAN_ONDIR, AT_FDCWD,
                        directory.c_str()) != 0) {
      throw std::runtime_error("no permission events: " + refhost::LastErrorText());
    }
    thread = std::thread([this, act = std::move(action)]() mutable { Run(std::move(act)); });
  }
  ~OnListing() {
    const std::uint64_t one = 1;
    EXPECT_EQ(::write(wake.Get(), &one, sizeof(one)), static_cast<ssize_t>(sizeof(one)));
    thread.join();
  }
  OnListing(const OnListing&) = delete;
  OnListing& operator=(const OnListing&) = delete;

 private:
  void Run(std::function<void()> action) {
    pollfd polled[] = {{group.Get(), POLLIN, 0}, {wake.Get(), POLLIN, 0}};
    while (::poll(polled, 2, -1) > 0 && polled[1].revents == 0) {
      fanotify_event_metadata event{};
      if (::read(group.Get(), &event, sizeof(event)) != static_cast<ssize_t>(sizeof(event))) continue;
      const Descriptor file(event.fd);
      if (action) std::exchange(action, nullptr)();
      const fanotify_response response{event.fd, FAN_ALLOW};
      [[maybe_unused]] const ssize_t written = ::write(group.Get(), &response, sizeof(response));
    }
  }

  const Descriptor group{::fanotify_init(FAN_CLASS_CONTENT | FAN_CLOEXEC | FAN_NONBLOCK, O_RDONLY | O_CLOEXEC)};
  const Descriptor wake{::eventfd(0, EFD_CLOEXEC)};
  std::thread thread;
};

class Marks : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!group.Valid()) GTEST_SKIP() << "no fanotify here";
  }

  FanotifyMarks Single() { return {group.Get(), MarkGroup::kMask, false, paths}; }
  FanotifyMarks Recursive() { return {group.Get(), MarkGroup::kMask, true, paths}; }

  PrivateMounts mounts;
  MarkGroup group;
  EventPaths paths;
  const TemporaryDirectory directory;
  const std::string first = directory.MakeDirectory("first").string();
  const std::string second = directory.MakeDirectory("second").string();
  const std::string moved = directory.Path().string() + "/moved";
  const std::string inFirst = directory.MakeFile("first/file").string();
  const std::string inSecond = directory.MakeFile("second/file").string();
};

TEST_F(Marks, AreSetOnTheDirectoryThatWasResolvedEvenIfItIsRenamed) {
  const ino_t old = InodeOf(first);
  const ino_t belowOld = InodeOf(directory.MakeDirectory("first/below").string());
  const ino_t other = InodeOf(second);
  const ino_t belowOther = InodeOf(directory.MakeDirectory("second/below").string());
  FanotifyMarks marks = Recursive();
  {
    // The directory is listed after it is checked and before it is marked.
    const OnListing exchange(first, [&] {
      EXPECT_EQ(std::rename(first.c_str(), moved.c_str()), 0);
      EXPECT_EQ(std::rename(second.c_str(), first.c_str()), 0);
    });
    EXPECT_THAT(marks.Set({first}).refused, IsEmpty());
  }
  EXPECT_THAT(group.Inodes(), UnorderedElementsAre(old, belowOld));
  EXPECT_EQ(EstablishedPath(paths, moved + "/file"), moved + "/file");
  EXPECT_EQ(marks.States(), (std::vector<WatchState>{{first, false, "is another directory now"}}));

  const FanotifyMarks::Change change = marks.Renew();
  EXPECT_THAT(change.lost, ElementsAre(first + ": is another directory now"));
  EXPECT_THAT(change.added, UnorderedElementsAre(first, first + "/below"));
  EXPECT_THAT(group.Inodes(), UnorderedElementsAre(old, belowOld, other, belowOther));
  EXPECT_EQ(EstablishedPath(paths, inFirst), inFirst);
  EXPECT_EQ(marks.States(), (std::vector<WatchState>{{first, true, {}}}));

  marks.Set({first});
  EXPECT_THAT(group.Inodes(), UnorderedElementsAre(other, belowOther));
}

TEST_F(Marks, ANewDirectoryIsMarkedAndItsPathsAreEstablished) {
  const std::string later = directory.Path().string() + "/later";
  FanotifyMarks marks = Single();
  EXPECT_THAT(marks.Set({later}).refused, ElementsAre(later + ": No such file or directory"));
  directory.MakeDirectory("later");
  const std::string inLater = directory.MakeFile("later/file").string();
  EXPECT_THAT(marks.Renew().added, ElementsAre(later));
  EXPECT_THAT(group.Inodes(), UnorderedElementsAre(InodeOf(later)));
  EXPECT_EQ(EstablishedPath(paths, inLater), inLater);
}

TEST_F(Marks, RemovingARenamedDirectoryKeepsTheMarksOfOthers) {
  FanotifyMarks marks = Single();
  marks.Set({first, second});
  group.Label(second);
  const MarkGroup::Marks before = group.All();
  ASSERT_EQ(std::rename(first.c_str(), moved.c_str()), 0);
  EXPECT_THAT(marks.Set({second}).removed, ElementsAre(first));
  EXPECT_EQ(group.All(), (MarkGroup::Marks{{InodeOf(second), before.at(InodeOf(second))}}));
}

TEST_F(Marks, RemovingADeletedDirectoryKeepsTheMarksOfOthers) {
  FanotifyMarks marks = Single();
  marks.Set({first, second});
  group.Label(second);
  const MarkGroup::Marks before = group.All();
  ASSERT_EQ(::unlink(inFirst.c_str()), 0);
  ASSERT_EQ(::rmdir(first.c_str()), 0);
  EXPECT_THAT(marks.Set({second}).removed, ElementsAre(first));
  EXPECT_EQ(group.All().at(InodeOf(second)), before.at(InodeOf(second)));
  // A new directory may get the inode number of the deleted one.
  directory.MakeDirectory("first");
  marks.Renew();
  EXPECT_EQ(group.All().count(InodeOf(first)), 0u);
}

TEST_F(Marks, ARenamedDirectoryIsUnmarkedOnAFileSystemWithoutHandles) {
  const std::string all = directory.MakeDirectory("all").string();
  const std::string options = "lowerdir=" + directory.MakeDirectory("lower").string() +
                              ",upperdir=" + directory.MakeDirectory("upper").string() +
                              ",workdir=" + directory.MakeDirectory("work").string();
  if (::mount("overlay", all.c_str(), "overlay", 0, options.c_str()) != 0) {
    GTEST_SKIP() << "no overlays here: " << refhost::LastErrorText();
  }
  const std::string leaving = directory.MakeDirectory("all/leaving").string();
  const std::string staying = directory.MakeDirectory("all/staying").string();
  {
    FanotifyMarks marks = Single();
    marks.Set({leaving, staying});
    group.Label(staying);
    const MarkGroup::Marks before = group.All();
    EXPECT_EQ(before.size(), 2u);
    EXPECT_EQ(std::rename(leaving.c_str(), (all + "/moved").c_str()), 0);
    marks.Set({staying});
    EXPECT_EQ(group.All(), (MarkGroup::Marks{{InodeOf(staying), before.at(InodeOf(staying))}}));
  }
  ::umount2(all.c_str(), MNT_DETACH);
}

TEST_F(Marks, AreKeptWhileNoDescriptorIsLeftToResolvePaths) {
  directory.MakeDirectory("first/below");
  FanotifyMarks marks = Recursive();
  marks.Set({first, second});
  const std::set<ino_t> all = group.Inodes();
  EXPECT_EQ(all.size(), 3u);
  FanotifyMarks::Change change;
  {
    const NoDescriptorsLeft none;
    change = marks.Set({first, second});
  }
  EXPECT_THAT(change.refused, IsEmpty());
  EXPECT_THAT(change.removed, IsEmpty());
  EXPECT_EQ(group.Inodes(), all);
  EXPECT_EQ(EstablishedPath(paths, inFirst), inFirst);
}

TEST_F(Marks, AreRemovedLaterIfNoDescriptorIsLeftToRemoveThem) {
  FanotifyMarks marks = Single();
  marks.Set({first, second});
  {
    const NoDescriptorsLeft none;
    marks.Set({second});
  }
  // Until then, the directory's paths can still be established.
  EXPECT_THAT(group.Inodes(), UnorderedElementsAre(InodeOf(first), InodeOf(second)));
  EXPECT_EQ(EstablishedPath(paths, inFirst), inFirst);
  marks.Renew();
  EXPECT_THAT(group.Inodes(), UnorderedElementsAre(InodeOf(second)));
}

TEST_F(Marks, NeedOneDescriptorPerMount) {
  std::vector<std::string> many;
  for (int i = 0; i < 300; ++i) many.push_back(directory.MakeDirectory("many/" + std::to_string(i)).string());
  FanotifyMarks marks = Single();
  const std::size_t before = OpenDescriptors();
  EXPECT_EQ(marks.Set(many).added.size(), many.size());
  EXPECT_EQ(OpenDescriptors(), before + 1);
  marks.Set(many);
  marks.Renew();
  EXPECT_EQ(OpenDescriptors(), before + 1);
}

}  // namespace
}  // namespace fenlux::testing
