// Access to the control socket, and its place in the file system.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>

#include "refhost/app/control/control_channel.h"
#include "tests/unit/refhost/control_channel_support.h"

namespace fenlux::refhost {
namespace {

using fenlux::testing::ControlErrorOf;
using fenlux::testing::ControlServing;
using fenlux::testing::TemporaryDirectory;

constexpr std::chrono::seconds kTimeout{10};

mode_t ModeOf(const boost::filesystem::path& path) {
  struct stat status {};
  return ::lstat(path.c_str(), &status) == 0 ? status.st_mode & 0777 : 0;
}

TEST(ControlSocket, IsRemovedWhenTheHostStops) {
  const TemporaryDirectory directory;
  const auto path = directory.Path() / "s";
  {
    const ControlServing serving(path);
    EXPECT_TRUE(boost::filesystem::exists(path));
  }
  EXPECT_FALSE(boost::filesystem::exists(path));
}

TEST(ControlSocket, IsAccessibleToItsUserOnlyInADirectoryThatItCreates) {
  const TemporaryDirectory directory;
  const auto path = directory.Path() / "made" / "s";
  const ControlServing serving(path);
  EXPECT_EQ(ModeOf(path.parent_path()), 0700U);
  EXPECT_EQ(ModeOf(path), 0600U);
}

TEST(ControlSocket, RefusesADirectoryThatIsOpenToOthers) {
  const TemporaryDirectory directory;
  boost::filesystem::permissions(directory.Path(), boost::filesystem::perms(0750));
  EXPECT_EQ(ControlErrorOf([&] { ControlListener(directory.Path() / "s"); }),
            "the directory " + directory.Path().string() +
                " of the control socket must be owned by you and accessible to you only (chmod 700)");
}

TEST(ControlSocket, RefusesASymbolicLinkToADirectory) {
  const TemporaryDirectory directory;
  const auto real = directory.Path() / "real";
  boost::filesystem::create_directory(real);
  boost::filesystem::permissions(real, boost::filesystem::owner_all);
  const auto link = directory.Path() / "link";
  boost::filesystem::create_directory_symlink(real, link);
  EXPECT_NE(ControlErrorOf([&] { ControlListener(link / "s"); }), "");
}

TEST(ControlSocket, SaysHowToAvoidAnotherHost) {
  const TemporaryDirectory directory;
  const auto path = directory.Path() / "s";
  const ControlServing serving(path);
  EXPECT_EQ(ControlErrorOf([&] { ControlListener{path}; }),
            "another host is listening on the control socket " + path.string() +
                "; stop it, or choose another socket with --socket or [control]");
}

TEST(ControlSocket, ReplacesASocketLeftByAKilledHost) {
  const TemporaryDirectory directory;
  const auto path = directory.Path() / "s";
  const int leftover = ::socket(AF_UNIX, SOCK_STREAM, 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strncpy(address.sun_path, path.c_str(), sizeof(address.sun_path) - 1);
  ASSERT_EQ(::bind(leftover, reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0);
  ::close(leftover);
  ASSERT_TRUE(boost::filesystem::exists(path));
  const ControlServing serving(path);
  EXPECT_EQ(SendControlRequest(path, "hello", kTimeout), "re: hello");
}

TEST(ControlSocket, RefusesAPathThatIsTooLong) {
  const std::string path = "/tmp/" + std::string(200, 'x');
  EXPECT_EQ(ControlErrorOf([&] { SendControlRequest(path, "", std::chrono::seconds(1)); }),
            "the path of the control socket, " + path + ", is longer than 107 bytes; use a shorter one");
}

TEST(ControlSocket, SaysWhyNoHostIsReachable) {
  const TemporaryDirectory directory;
  const auto path = directory.Path() / "s";
  EXPECT_EQ(ControlErrorOf([&] { SendControlRequest(path, "", std::chrono::seconds(1)); }),
            "no host reachable on the control socket " + path.string() + ": No such file or directory");
}

}  // namespace
}  // namespace fenlux::refhost
