// The directories whose paths can be established: how long each one is kept, and its mount with it. Tests that need
// mounts are skipped with the reason if the machine does not allow them.
#include <gmock/gmock.h>
#include <sys/mount.h>

#include <cerrno>
#include <chrono>

#include "tests/support/temporary_directory.h"
#include "tests/unit/emulator/kernel_fixture.h"
#include "tests/unit/emulator/mark_group.h"

namespace fenlux::testing {
namespace {

using namespace std::chrono_literals;
using refhost::EventPaths;
using ::testing::Optional;

class KnownDirectories : public ::testing::Test {
 protected:
  const EventPaths::TimePoint start = std::chrono::steady_clock::now();
  PrivateMounts mounts;
  EventPaths paths;
  const TemporaryDirectory directory;
  const std::string first = directory.MakeDirectory("first").string();
  const std::string second = directory.MakeDirectory("second").string();
  const std::string inFirst = directory.MakeFile("first/file").string();
  const std::string inSecond = directory.MakeFile("second/file").string();
};

TEST_F(KnownDirectories, AreThoseOfTheLastReplacementAndLaterAdditions) {
  EXPECT_EQ(EstablishedPath(paths, inFirst), std::nullopt);
  paths.Replace(Watched({first}), start);
  EXPECT_THAT(EstablishedPath(paths, inFirst), Optional(inFirst));
  EXPECT_EQ(EstablishedPath(paths, inSecond), std::nullopt);
  paths.Add(Watched({second}));
  EXPECT_THAT(EstablishedPath(paths, inFirst), Optional(inFirst));
  EXPECT_THAT(EstablishedPath(paths, inSecond), Optional(inSecond));
}

// Events of a directory may be queued when it is dropped.
TEST_F(KnownDirectories, AreForgottenAfterTheirRetention) {
  paths.Replace(Watched({first, second}), start);
  paths.Replace(Watched({second}), start);
  paths.Forget(start + EventPaths::kRetention - 1ns);
  EXPECT_THAT(EstablishedPath(paths, inFirst), Optional(inFirst));
  paths.Forget(start + EventPaths::kRetention);
  EXPECT_EQ(EstablishedPath(paths, inFirst), std::nullopt);
  EXPECT_THAT(EstablishedPath(paths, inSecond), Optional(inSecond));
}

TEST_F(KnownDirectories, AreRetainedFromTheFirstReplacementWithoutThem) {
  paths.Replace(Watched({first}), start);
  paths.Replace({}, start);
  paths.Replace(Watched({second}), start + 5s);
  paths.Forget(start + EventPaths::kRetention);
  EXPECT_EQ(EstablishedPath(paths, inFirst), std::nullopt);
}

TEST_F(KnownDirectories, AreKeptIfTheyAreWatchedAgainInTime) {
  paths.Replace(Watched({first, second}), start);
  paths.Replace({}, start);
  paths.Replace(Watched({first}), start + 5s);
  paths.Add(Watched({second}));
  paths.Forget(start + 10 * EventPaths::kRetention);
  EXPECT_THAT(EstablishedPath(paths, inFirst), Optional(inFirst));
  EXPECT_THAT(EstablishedPath(paths, inSecond), Optional(inSecond));
}

// Mounts a file system on `first` for one test.
class KnownMounts : public KnownDirectories {
 protected:
  void SetUp() override {
    if (::mount("x", first.c_str(), "tmpfs", 0, nullptr) != 0) {
      GTEST_SKIP() << "no mounts here: " << refhost::LastErrorText();
    }
    directory.MakeFile("first/file");
  }
  void TearDown() override { ::umount2(first.c_str(), MNT_DETACH); }
};

TEST_F(KnownMounts, AreHeldUntilTheirDirectoriesAreForgotten) {
  paths.Replace(Watched({first}), start);
  EXPECT_EQ(::umount(first.c_str()), -1);
  EXPECT_EQ(errno, EBUSY);
  paths.Replace(Watched({second}), start);
  paths.Forget(start + EventPaths::kRetention - 1ns);
  EXPECT_EQ(::umount(first.c_str()), -1);
  EXPECT_EQ(errno, EBUSY);
  paths.Forget(start + EventPaths::kRetention);
  EXPECT_EQ(::umount(first.c_str()), 0) << refhost::LastErrorText();
}

TEST_F(KnownMounts, KeepTheirIdWhenTheyAreDetached) {
  const auto watched = Watched({first});
  paths.Replace(watched, start);
  const std::uint64_t id = watched.begin()->second.mount->mountId;
  ASSERT_EQ(::umount2(first.c_str(), MNT_DETACH), 0);
  ASSERT_EQ(::mount("x", first.c_str(), "tmpfs", 0, nullptr), 0);
  directory.MakeFile("first/file");
  EXPECT_NE(Watched({first}).begin()->second.mount->mountId, id);
  // This file has the path of one in the watched directory, but is on another mount.
  EXPECT_EQ(EstablishedPath(paths, inFirst), std::nullopt);
}

TEST_F(KnownMounts, NeedADescriptorOnlyForFilesOpenedThroughAnotherMount) {
  paths.Replace(Watched({first}), start);
  ASSERT_EQ(::mount(first.c_str(), second.c_str(), nullptr, MS_BIND, nullptr), 0);
  EXPECT_THAT(EstablishedPath(paths, inSecond), Optional(inFirst));
  const refhost::Descriptor known(::open(inFirst.c_str(), O_RDONLY | O_CLOEXEC));
  const refhost::Descriptor foreign(::open(inSecond.c_str(), O_RDONLY | O_CLOEXEC));
  std::optional<std::string> path;
  bool lacking = false;
  {
    const NoDescriptorsLeft none;
    path = paths.PathOf(known.Get());
    try {
      paths.PathOf(foreign.Get());
    } catch (const refhost::NoDescriptors&) {
      lacking = true;
    }
  }
  EXPECT_THAT(path, Optional(inFirst));
  EXPECT_TRUE(lacking);
  ::umount2(second.c_str(), MNT_DETACH);
}

// The directory through which a mount is held open may have been deleted.
TEST_F(KnownMounts, AreUsableAfterTheDirectoryThatHoldsThemIsDeleted) {
  const std::string deleted = directory.MakeDirectory("first/deleted").string();
  const auto held = refhost::FindDirectory(deleted).directory;
  auto watched = Watched({first});
  watched.begin()->second.mount = held;
  paths.Replace(watched, start);
  ASSERT_EQ(::rmdir(deleted.c_str()), 0);
  ASSERT_EQ(::mount(first.c_str(), second.c_str(), nullptr, MS_BIND, nullptr), 0);
  EXPECT_THAT(EstablishedPath(paths, inSecond), Optional(inFirst));
  ::umount2(second.c_str(), MNT_DETACH);
}

}  // namespace
}  // namespace fenlux::testing
