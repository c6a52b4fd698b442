// Which files root uses: those that only root and the user who called sudo can change.
#include "refhost/app/security/file_trust.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <boost/filesystem/operations.hpp>
#include <stdexcept>

#include "refhost/app/security/trusted_log.h"
#include "tests/support/temporary_directory.h"
#include "tests/unit/refhost/set_environment.h"

namespace fenlux::refhost {
namespace {

namespace fs = boost::filesystem;
using fenlux::testing::SetEnvironmentText;
using fenlux::testing::TemporaryDirectory;
using fenlux::testing::UnsetEnvironmentText;

// Ids of users and groups that need not exist.
constexpr uid_t kSudoUser = 54321;
constexpr uid_t kOtherUser = 54322;

class FileTrust : public ::testing::Test {
 protected:
  void SetUp() override {
    if (::geteuid() != 0) GTEST_SKIP() << "only root checks the files it uses";
    SetEnvironmentText("SUDO_UID", std::to_string(kSudoUser));
    file = directory.Write("inner/file", "");
    ASSERT_EQ(WhyUntrusted(file), "");
  }
  void TearDown() override { UnsetEnvironmentText("SUDO_UID"); }

  static void SetMode(const fs::path& path, mode_t mode) { ASSERT_EQ(::chmod(path.c_str(), mode), 0); }
  static void SetOwner(const fs::path& path, uid_t user) { ASSERT_EQ(::lchown(path.c_str(), user, 0), 0); }

  TemporaryDirectory directory;
  fs::path inner = directory.MakeDirectory("inner");
  fs::path file;
};

TEST_F(FileTrust, RefusesAFileThatOthersMayWriteAndSaysWhatToDo) {
  SetMode(file, 0666);
  EXPECT_EQ(WhyUntrusted(file), file.string() +
                                    " may be written by other users (mode 0666), who could change what root runs. Take "
                                    "that right away (chmod go-w), or override this check with --insecure-permissions");
}

TEST_F(FileTrust, RefusesAFileOfAnotherUserAndSaysWhatToDo) {
  SetOwner(file, kOtherUser);
  EXPECT_EQ(WhyUntrusted(file), file.string() +
                                    " belongs to user 54322, who could change what root runs. Give it to root (chown "
                                    "root), or override this check with --insecure-permissions");
}

TEST_F(FileTrust, AcceptsTheFilesOfTheUserWhoCalledSudo) {
  SetOwner(file, kSudoUser);
  SetOwner(inner, kSudoUser);
  EXPECT_EQ(WhyUntrusted(file), "");
  UnsetEnvironmentText("SUDO_UID");
  EXPECT_NE(WhyUntrusted(file), "");
  SetEnvironmentText("SUDO_UID", "54321x");
  EXPECT_NE(WhyUntrusted(file), "");
}

TEST_F(FileTrust, RefusesAFileBelowADirectoryThatOthersMayWrite) {
  SetMode(inner, 0777);
  EXPECT_NE(WhyUntrusted(file), "");
  EXPECT_NE(WhyUntrusted(inner / "missing"), "");
  SetMode(inner, 01777);  // sticky
  EXPECT_EQ(WhyUntrusted(file), "");
  EXPECT_EQ(WhyUntrusted(inner / "missing"), "");
  SetMode(inner, 0755);
  SetMode(directory.Path(), 0777);
  EXPECT_NE(WhyUntrusted(file), "");
}

TEST_F(FileTrust, RefusesAFileThatAnyGroupButRootsMayWrite) {
  SetMode(file, 0664);
  EXPECT_EQ(WhyUntrusted(file), "");
  ASSERT_EQ(::chown(file.c_str(), 0, kSudoUser), 0);
  EXPECT_NE(WhyUntrusted(file), "") << "a group that is not the user's own";
}

TEST_F(FileTrust, ChecksBothASymbolicLinkAndItsTarget) {
  const fs::path target = directory.Write("target", "");
  const fs::path link = inner / "link";
  fs::create_symlink("../inner/../target", link);
  EXPECT_EQ(WhyUntrusted(link), "");
  SetMode(target, 0666);
  EXPECT_NE(WhyUntrusted(link), "");
  SetMode(target, 0644);
  SetOwner(link, kOtherUser);
  EXPECT_NE(WhyUntrusted(link), "") << "its owner could point it elsewhere";
}

TEST_F(FileTrust, StopsAtALoopOfLinks) {
  const fs::path link = inner / "circle";
  fs::create_symlink(link, link);
  EXPECT_EQ(WhyUntrusted(link), link.string() + " has too many symbolic links");
}

TEST_F(FileTrust, ChecksAnOpenFileItself) {
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> opened(std::fopen(file.c_str(), "r"), &std::fclose);
  ASSERT_NE(opened, nullptr);
  EXPECT_EQ(WhyUntrusted(file, opened.get()), "");
  SetOwner(file, kOtherUser);
  EXPECT_NE(WhyUntrusted(file, opened.get()), "");
}

TEST_F(FileTrust, ALogIsNotWrittenBelowADirectoryThatAnotherUserCreated) {
  SetMode(inner, 01777);
  const fs::path log = inner / "logs" / "host.log";
  EXPECT_EQ(WhyUntrusted(log), "");
  // Another user creates the directory before the host does.
  fs::create_directory(log.parent_path());
  SetOwner(log.parent_path(), kOtherUser);
  EXPECT_THROW(OpenTrustedLog(log, false), std::runtime_error);
  EXPECT_FALSE(fs::exists(log));
  EXPECT_NE(OpenTrustedLog(log, true), nullptr);

  const fs::path own = inner / "own" / "host.log";
  EXPECT_NE(OpenTrustedLog(own, false), nullptr);
  EXPECT_TRUE(fs::exists(own));
}

TEST(FileTrustOfAnOrdinaryUser, IsNotChecked) {
  if (::geteuid() == 0) GTEST_SKIP() << "root is not an ordinary user";
  const TemporaryDirectory directory;
  const fs::path file = directory.MakeFile("file");
  ASSERT_EQ(::chmod(file.c_str(), 0666), 0);
  EXPECT_EQ(WhyUntrusted(file), "");
}

}  // namespace
}  // namespace fenlux::refhost
