// The paths of kernel events when a process tries to hide the name of a file it opens. If the machine does not allow
// such events or mounts, the tests are skipped with the reason.
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string_view>

#include "tests/unit/emulator/kernel_events_test.h"

namespace fenlux::testing {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

// Wraps a command so that another user runs it in a namespace in which that user may mount.
std::string AsNobody(const std::string& command) {
  return "setpriv --reuid=65534 --regid=65534 --clear-groups unshare -Urm sh -c \"" + command + "\" 2>/dev/null";
}

// The module refuses every path that ends in ".secret".
class EventPath : public KernelEvents {
 protected:
  EventPath() {
    ::chmod(directory.Path().c_str(), 0755);
    handler = [this](const Bytes& message) {
      const std::string path = PathOf(message);
      const std::lock_guard lock(mutex);
      seen.push_back(path);
      return Buffer(Reply(path.ends_with(".secret") ? 4 : 2));
    };
  }

  static std::string PathOf(const Bytes& message) {
    const refhost::NotificationView view(message);
    std::u16string path((view.Size() - sizeof(records::Notification)) / 2, u'\0');
    std::memcpy(path.data(), view.Data() + sizeof(records::Notification), path.size() * 2);
    return refhost::NarrowFromUtf16(path.substr(0, path.find(u'\0')));
  }

  // Returns the paths that the module was asked to judge since the last call.
  std::vector<std::string> Seen() {
    const std::lock_guard lock(mutex);
    return std::exchange(seen, {});
  }
  // Opens the secret file through another mount while the host has no descriptors to look it up. Returns the status.
  int OpenSecretWithoutDescriptors() {
    settings.kernel.threads = 1;  // another reader could keep the last descriptor while the event is read
    Opened();
    WarmUpSanitizer();
    EXPECT_THAT(Seen(), ElementsAre(file));
    const NoDescriptorsLeft none;
    return other.Shell("unshare -m cat " + secret + " >/dev/null 2>&1");
  }
  std::uint64_t NotLookedUp() { return Totals().Unjudged(UnjudgedCause::kPathNotLookedUp); }
  std::uint64_t NotEstablished() { return Totals().Unjudged(UnjudgedCause::kPathNotEstablished); }

  std::mutex mutex;
  std::vector<std::string> seen;
  const std::string secret = directory.MakeFile("diary.secret").string();
};

TEST_F(EventPath, IsTheRealPathIfAnotherUserMountsTheFileUnderAnotherName) {
  if (other.Shell(AsNobody("mount -t tmpfs x /mnt")) != 0) GTEST_SKIP() << "users may not mount here";
  Opened();
  EXPECT_NE(other.Shell(AsNobody("mount -t tmpfs x /mnt; touch /mnt/p; mount --bind " + secret +
                                 " /mnt/p && cat /mnt/p >/dev/null")),
            0);
  EXPECT_THAT(Seen(), ElementsAre(secret));
  EXPECT_EQ(other.Shell(AsNobody("mount -t tmpfs x /mnt; touch /mnt/p; mount --bind " + file +
                                 " /mnt/p && cat /mnt/p >/dev/null")),
            0);
  EXPECT_THAT(Seen(), ElementsAre(file));
}

TEST_F(EventPath, IsTheRealPathIfAnotherUserOpensTheFileThroughAnOverlay) {
  const std::string overlay =
      "mount -t tmpfs x /mnt; mkdir /mnt/upper /mnt/work /mnt/all; mount -t overlay x -o userxattr,lowerdir=" +
      directory.Path().string() + ",upperdir=/mnt/upper,workdir=/mnt/work /mnt/all";
  if (other.Shell(AsNobody(overlay)) != 0) GTEST_SKIP() << "users may not mount overlays here";
  Opened();
  const int result = other.Shell(AsNobody(overlay + " && cat /mnt/all/diary.secret >/dev/null"));
  if (Totals().kernelEvents == 0) GTEST_SKIP() << "this kernel sends no event for a file below an overlay";
  EXPECT_NE(result, 0);
  EXPECT_THAT(Seen(), ElementsAre(secret));
}

TEST_F(EventPath, IsTheRealPathIfTheFileIsOpenedInAnotherMountNamespace) {
  Opened();
  EXPECT_EQ(other.Shell("unshare -m cat " + file + " >/dev/null"), 0);
  EXPECT_NE(other.Shell("unshare -m cat " + secret + " >/dev/null 2>&1"), 0);
  EXPECT_THAT(Seen(), ElementsAre(file, secret));
}

TEST_F(EventPath, IsTheRealPathIfTheFileIsOpenedThroughABindMountThatTheHostSees) {
  const std::string elsewhere = directory.MakeDirectory("elsewhere").string();
  const std::string shown = directory.MakeFile("elsewhere/p").string();
  ASSERT_EQ(::mount(secret.c_str(), shown.c_str(), nullptr, MS_BIND, nullptr), 0);
  Opened();
  EXPECT_EQ(other.Perform(shown), EPERM);
  EXPECT_THAT(Seen(), ElementsAre(secret));
  ::umount2(shown.c_str(), MNT_DETACH);
}

TEST_F(EventPath, UsesTheDirectorysOwnMountIfSeveralMountsAreWatched) {
  const std::string first = directory.MakeDirectory("first").string();
  const std::string second = directory.MakeDirectory("second").string();
  const std::string inFirst = directory.MakeFile("first/a.secret").string();
  const std::string view = directory.MakeDirectory("view").string();
  ASSERT_EQ(::mount(directory.Path().c_str(), view.c_str(), nullptr, MS_BIND, nullptr), 0);
  settings.kernel.directories = {first, view + "/second"};
  Opened();
  EXPECT_EQ(other.Perform(view + "/first/a.secret"), EPERM);
  EXPECT_THAT(Seen(), ElementsAre(inFirst));
  Emulator().Stop();
  ::umount2(view.c_str(), MNT_DETACH);
}

TEST_F(EventPath, CannotBeLookedUpByHandleIfTheFileHasTwoNames) {
  const std::string twin = directory.Path().string() + "/twin.txt";
  ASSERT_EQ(::link(secret.c_str(), twin.c_str()), 0);
  Opened();
  EXPECT_NE(other.Shell("unshare -m cat " + twin + " >/dev/null 2>&1"), 0);
  EXPECT_NE(other.Shell("unshare -m cat " + secret + " >/dev/null 2>&1"), 0);
  EXPECT_THAT(Seen(), IsEmpty());
  EXPECT_EQ(NotEstablished(), 2u);
  // Through the directory's own mount, each name is judged.
  EXPECT_EQ(other.Perform(twin), 0);
  EXPECT_EQ(other.Perform(secret), EPERM);
  EXPECT_THAT(Seen(), ElementsAre(twin, secret));
  EXPECT_EQ(Totals().kernelRefused, 3u);
}

TEST_F(EventPath, AnOpenPassesByDefaultIfNoDescriptorIsLeftToLookUpItsPath) {
  EXPECT_EQ(OpenSecretWithoutDescriptors(), 0);
  EXPECT_THAT(Seen(), IsEmpty());
  EXPECT_EQ(NotLookedUp(), 1u);
  EXPECT_EQ(NotEstablished(), 0u);
  // The next open is looked up.
  EXPECT_NE(other.Shell("unshare -m cat " + secret + " >/dev/null 2>&1"), 0);
  EXPECT_THAT(Seen(), ElementsAre(secret));
}

TEST_F(EventPath, AnOpenIsRefusedIfNoDescriptorIsLeftAndTheSettingSaysSo) {
  settings.unjudged = UnjudgedPolicy::kRefuse;
  EXPECT_NE(OpenSecretWithoutDescriptors(), 0);
  EXPECT_THAT(Seen(), IsEmpty());
  EXPECT_EQ(NotLookedUp(), 1u);
  EXPECT_EQ(Totals().kernelRefusedUnjudged, 1u);
}

// Directories are watched, not files.
TEST_F(EventPath, AHardLinkOutsideTheDirectoryIsNotWatched) {
  const TemporaryDirectory elsewhere;
  const std::string link = elsewhere.Path().string() + "/plain.txt";
  ASSERT_EQ(::link(secret.c_str(), link.c_str()), 0);
  Opened();
  EXPECT_EQ(other.Perform(link), 0);
  EXPECT_EQ(Totals().kernelEvents, 0u);
  EXPECT_EQ(other.Perform(secret), EPERM);
}

TEST_F(EventPath, IsNotEstablishedIfItExceedsTheSystemsLimit) {
  const std::size_t length = 3900 - directory.Path().size() - 1;
  std::string below = "d";
  while (below.size() + 102 < length) below += "/" + std::string(100, 'd');
  below += "/" + std::string(length - below.size() - 1, 'd');
  const std::string deep = directory.MakeDirectory(below).string();
  ASSERT_EQ(other.Shell("cd " + deep + " && for i in 1 2 3 4; do name=${name}" + std::string(60, 'n') +
                        "; done; echo text >$name; echo text >short"),
            0);
  settings.kernel.directories = {deep};
  Opened();
  EXPECT_EQ(other.Shell("cd " + deep + " && cat short >/dev/null"), 0);
  EXPECT_THAT(Seen(), ElementsAre(deep + "/short"));
  EXPECT_NE(other.Shell("cd " + deep + " && cat n* >/dev/null 2>&1"), 0);
  EXPECT_THAT(Seen(), IsEmpty());
  EXPECT_EQ(NotEstablished(), 1u);
}

TEST_F(EventPath, IsTheOldNameIfTheNameWasRemoved) {
  Opened();
  EXPECT_EQ(other.Shell("exec 3<" + file + "; rm " + file + "; cat /proc/self/fd/3 >/dev/null"), 0);
  EXPECT_THAT(Seen(), ElementsAre(file, file));
  const std::string kept = directory.MakeFile("kept").string();
  EXPECT_EQ(other.Shell("exec 3<" + kept + "; ln " + kept + " " + kept + ".2; rm " + kept +
                        "; cat /proc/self/fd/3 >/dev/null"),
            0);
  EXPECT_THAT(Seen(), ElementsAre(kept, kept));
}

TEST_F(EventPath, MayEndInTheKernelsMarkForARemovedName) {
  const std::string strange = directory.MakeFile("a.secret (deleted)").string();
  Opened();
  EXPECT_EQ(other.Perform(strange), 0);
  EXPECT_THAT(Seen(), ElementsAre(strange));
  // The removed file is judged by its name without the kernel's mark.
  EXPECT_EQ(other.Shell("exec 3<'" + strange + "'; rm '" + strange + "'; cat /proc/self/fd/3 >/dev/null"), 0);
  EXPECT_THAT(Seen(), ElementsAre(strange, strange));
}

TEST_F(EventPath, IsEstablishedOnAMountBelowARecursivelyWatchedDirectory) {
  const std::string below = directory.MakeDirectory("below").string();
  ASSERT_EQ(::mount("x", below.c_str(), "tmpfs", 0, nullptr), 0);
  directory.MakeDirectory("below/deep");
  const std::string hidden = directory.MakeFile("below/deep/a.secret").string();
  settings.kernel.recursive = true;
  Opened();
  EXPECT_EQ(other.Perform(hidden), EPERM);
  EXPECT_NE(other.Shell("unshare -m cat " + hidden + " >/dev/null 2>&1"), 0);
  EXPECT_EQ(other.Perform(secret), EPERM);
  EXPECT_THAT(Seen(), ElementsAre(hidden, hidden, secret));
  Emulator().Stop();
  ::umount2(below.c_str(), MNT_DETACH);
}

}  // namespace
}  // namespace fenlux::testing
