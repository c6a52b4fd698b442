// The control socket: who may reach it, and that a request gets its answer.
#include "refhost/app/control/control_channel.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>

#include "tests/unit/refhost/control_serving.h"
#include "tests/support/temporary_directory.h"

namespace fenlux::refhost {
namespace {

using fenlux::testing::ControlErrorOf;
using fenlux::testing::ControlServing;
using fenlux::testing::TemporaryDirectory;

mode_t ModeOf(const boost::filesystem::path& path) {
  struct stat status {};
  return ::lstat(path.c_str(), &status) == 0 ? status.st_mode & 0777 : 0;
}

TEST(ControlChannel, AnswersEachRequestAndRemovesItsSocketAtTheEnd) {
  const TemporaryDirectory directory;
  const auto place = directory.Path() / "s";
  {
    const ControlServing serving(place);
    EXPECT_EQ(ControlExchange(place, "one", std::chrono::seconds(10)), "re: one");
    EXPECT_EQ(ControlExchange(place, "two", std::chrono::seconds(10)), "re: two");
    const std::string large(300'000, 'x');
    EXPECT_EQ(ControlExchange(place, large, std::chrono::seconds(10)), "re: " + large);
  }
  EXPECT_FALSE(boost::filesystem::exists(place));
}

TEST(ControlChannel, OnlyItsUserCanOpenTheSocketAndTheDirectoryThatItMakes) {
  const TemporaryDirectory directory;
  const auto place = directory.Path() / "made" / "s";
  const ControlServing serving(place);
  EXPECT_EQ(ModeOf(place.parent_path()), 0700U);
  EXPECT_EQ(ModeOf(place), 0600U);
}

TEST(ControlChannel, RefusesADirectoryThatIsOpenToOthers) {
  const TemporaryDirectory directory;
  boost::filesystem::permissions(directory.Path(), boost::filesystem::perms(0750));
  EXPECT_EQ(ControlErrorOf([&] { ControlListener(directory.Path() / "s"); }),
            "the control socket's directory " + directory.Path().string() +
                " must be a directory of your own that is closed to others (chmod 700)");
}

TEST(ControlChannel, RefusesALinkToADirectory) {
  const TemporaryDirectory directory;
  const auto real = directory.Path() / "real";
  boost::filesystem::create_directory(real);
  boost::filesystem::permissions(real, boost::filesystem::owner_all);
  const auto link = directory.Path() / "link";
  boost::filesystem::create_directory_symlink(real, link);
  EXPECT_NE(ControlErrorOf([&] { ControlListener(link / "s"); }), "");
}

TEST(ControlChannel, RefusesAPlaceWhereAnotherHostListens) {
  const TemporaryDirectory directory;
  const auto place = directory.Path() / "s";
  const ControlServing serving(place);
  EXPECT_EQ(ControlErrorOf([&] { ControlListener{place}; }), "another host listens on the control socket " +
                                                                 place.string() +
                                                                 "; end it, or name another socket under [control]");
  EXPECT_EQ(ControlExchange(place, "still there", std::chrono::seconds(10)), "re: still there");
}

TEST(ControlChannel, TakesOverASocketThatWasLeftBehind) {
  const TemporaryDirectory directory;
  const auto place = directory.Path() / "s";
  const int left = ::socket(AF_UNIX, SOCK_STREAM, 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strncpy(address.sun_path, place.c_str(), sizeof(address.sun_path) - 1);
  ASSERT_EQ(::bind(left, reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0);
  ::close(left);
  ASSERT_TRUE(boost::filesystem::exists(place));
  const ControlServing serving(place);
  EXPECT_EQ(ControlExchange(place, "hello", std::chrono::seconds(10)), "re: hello");
}

TEST(ControlChannel, RefusesAPathThatIsTooLong) {
  const std::string place = "/tmp/" + std::string(200, 'x');
  EXPECT_EQ(ControlErrorOf([&] { ControlExchange(place, "", std::chrono::seconds(1)); }),
            "the control socket's path " + place + " is longer than 107 bytes; name a shorter one");
}

TEST(ControlChannel, SaysThatNoHostIsThere) {
  const TemporaryDirectory directory;
  const auto place = directory.Path() / "s";
  EXPECT_EQ(ControlErrorOf([&] { ControlExchange(place, "", std::chrono::seconds(1)); }),
            "no host can be reached on the control socket " + place.string() + ": No such file or directory");
}

TEST(ControlChannel, AClientThatGoesAwayInTheMiddleOfALineDoesNotEndTheService) {
  const TemporaryDirectory directory;
  const auto place = directory.Path() / "s";
  const ControlServing serving(place);
  const int client = ::socket(AF_UNIX, SOCK_STREAM, 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strncpy(address.sun_path, place.c_str(), sizeof(address.sun_path) - 1);
  ASSERT_EQ(::connect(client, reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0);
  ASSERT_EQ(::write(client, "half", 4), 4);
  ::close(client);
  EXPECT_EQ(ControlExchange(place, "next", std::chrono::seconds(10)), "re: next");
}

}  // namespace
}  // namespace fenlux::refhost
