// Access to the control socket, and its place in the file system.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <barrier>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "refhost/app/control/control_channel.h"
#include "refhost/base/platform/descriptor_posix.h"
#include "tests/unit/refhost/control_channel_support.h"
#include "tests/unit/refhost/set_environment.h"

namespace fenlux::refhost {
namespace {

using fenlux::testing::ControlErrorOf;
using fenlux::testing::ControlServing;
using fenlux::testing::FileText;
using fenlux::testing::kRequestTimeout;
using fenlux::testing::SetEnvironmentText;
using fenlux::testing::TemporaryDirectory;
using fenlux::testing::UnsetEnvironmentText;

mode_t ModeOf(const boost::filesystem::path& path) {
  struct stat status {};
  return ::lstat(path.c_str(), &status) == 0 ? status.st_mode & 0777 : 0;
}

sockaddr_un AddressOf(const boost::filesystem::path& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strncpy(address.sun_path, path.c_str(), sizeof(address.sun_path) - 1);
  return address;
}

// Leaves a socket that nobody listens on, as a killed host does.
void LeaveSocket(const boost::filesystem::path& path) {
  const Descriptor leftover(::socket(AF_UNIX, SOCK_STREAM, 0));
  const sockaddr_un address = AddressOf(path);
  EXPECT_EQ(::bind(leftover.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0);
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

TEST(ControlSocket, IsAccessibleOnlyToItsUserInADirectoryThatItCreates) {
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
  LeaveSocket(path);
  ASSERT_TRUE(boost::filesystem::exists(path));
  const ControlServing serving(path);
  EXPECT_EQ(SendControlRequest(path, "hello", kRequestTimeout), "re: hello");
}

TEST(ControlSocket, OnlyOneOfSeveralConcurrentHostsReplacesALeftover) {
  const TemporaryDirectory directory;
  const auto path = directory.Path() / "s";
  for (int round = 0; round < 50; ++round) {
    LeaveSocket(path);
    std::barrier start(4);
    std::mutex mutex;
    std::vector<std::unique_ptr<ControlListener>> listening;
    std::vector<std::thread> hosts;
    for (int host = 0; host < 4; ++host) {
      hosts.emplace_back([&] {
        start.arrive_and_wait();
        try {
          auto listener = std::make_unique<ControlListener>(path);
          const std::scoped_lock lock(mutex);
          listening.push_back(std::move(listener));
        } catch (const ControlChannelError&) {
        }
      });
    }
    for (std::thread& host : hosts) host.join();
    ASSERT_EQ(listening.size(), 1U) << "round " << round;
    ASSERT_TRUE(boost::filesystem::exists(path)) << "round " << round;
  }
}

TEST(ControlSocket, DoesNotReplaceAnOrdinaryFileAndSaysWhatToDo) {
  const TemporaryDirectory directory;
  const auto file = directory.MakeFile("s");
  EXPECT_EQ(ControlErrorOf([&] { ControlListener{file}; }),
            "cannot open the control socket " + file.string() +
                ": something that is not a socket is in its place; move it away, or choose another socket with "
                "--socket or [control]");
  EXPECT_EQ(FileText(file), "text\n");
}

TEST(ControlSocket, DoesNotReplaceTheSocketOfAnotherProgram) {
  const TemporaryDirectory directory;
  const auto path = directory.Path() / "s";
  const Descriptor other(::socket(AF_UNIX, SOCK_DGRAM, 0));
  const sockaddr_un address = AddressOf(path);
  ASSERT_EQ(::bind(other.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0);
  EXPECT_NE(ControlErrorOf([&] { ControlListener{path}; }), "");
  EXPECT_TRUE(boost::filesystem::exists(path));
}

TEST(ControlSocket, DoesNotRemoveAFileThatHasReplacedItWhenItStops) {
  const TemporaryDirectory directory;
  const auto path = directory.Path() / "s";
  {
    const ControlServing serving(path);
    boost::filesystem::remove(path);
    directory.MakeFile("s");
  }
  EXPECT_EQ(FileText(path), "text\n");
}

// A listener that accepts no connection and whose queue is full.
class FullListener {
 public:
  explicit FullListener(const boost::filesystem::path& path) : listener(::socket(AF_UNIX, SOCK_STREAM, 0)) {
    const sockaddr_un address = AddressOf(path);
    EXPECT_EQ(::bind(listener.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0);
    EXPECT_EQ(::listen(listener.Get(), 0), 0);
    do {
      waiting.emplace_back(::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0));
    } while (::connect(waiting.back().Get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0);
    EXPECT_EQ(errno, EAGAIN);
  }

 private:
  const Descriptor listener;
  std::vector<Descriptor> waiting;
};

TEST(ControlSocket, AClientDoesNotWaitForeverForAHostThatAcceptsNoConnection) {
  const TemporaryDirectory directory;
  const auto path = directory.Path() / "s";
  const FullListener full(path);
  EXPECT_EQ(ControlErrorOf([&] { SendControlRequest(path, "", std::chrono::milliseconds(100)); }),
            "no host reachable on the control socket " + path.string() +
                ": a host listens there, but does not accept clients; is it stopped?");
}

TEST(ControlSocket, ANewHostDoesNotWaitForeverForOneThatAcceptsNoConnection) {
  const TemporaryDirectory directory;
  const auto path = directory.Path() / "s";
  const FullListener full(path);
  EXPECT_THROW(ControlListener{path}, ControlChannelBusy);
}

// Interrupts the calls of the thread that made it, again and again.
class Signals {
 public:
  Signals() = default;
  ~Signals() {
    ended = true;
    sender.join();
    ::sigaction(SIGUSR2, &before, nullptr);
  }
  Signals(const Signals&) = delete;
  Signals& operator=(const Signals&) = delete;

 private:
  // Returns the action before.
  static struct sigaction IgnoreSignal() {
    struct sigaction action {};
    action.sa_handler = [](int) {};
    struct sigaction before {};
    ::sigaction(SIGUSR2, &action, &before);
    return before;
  }

  const struct sigaction before = IgnoreSignal();  // first: the thread sends at once
  std::atomic<bool> ended{false};
  std::thread sender{[this, thread = ::pthread_self()] {
    while (!ended) {
      ::pthread_kill(thread, SIGUSR2);
      std::this_thread::yield();
    }
  }};
};

TEST(ControlSocket, SignalsNeitherEndNorProlongTheWaitForAHost) {
  const TemporaryDirectory directory;
  const auto path = directory.Path() / "s";
  const FullListener full(path);
  const Signals signals;
  EXPECT_EQ(ControlErrorOf([&] { SendControlRequest(path, "", std::chrono::milliseconds(100)); }),
            "no host reachable on the control socket " + path.string() +
                ": a host listens there, but does not accept clients; is it stopped?");
}

// Sets the user's runtime directory for the duration of a test.
struct RuntimeDirectory {
  explicit RuntimeDirectory(const std::string& path) { SetEnvironmentText("XDG_RUNTIME_DIR", path); }
  ~RuntimeDirectory() { UnsetEnvironmentText("XDG_RUNTIME_DIR"); }
};

TEST(ControlSocket, IsNotInADirectoryOfAnotherUserByDefault) {
  const TemporaryDirectory directory;
  const bool isRoot = ::geteuid() == 0;
  if (isRoot) {
    ASSERT_EQ(::chown(directory.Path().c_str(), 1, 1), 0);
  }
  const RuntimeDirectory runtime(isRoot ? directory.Path().string() : "/");
  EXPECT_EQ(DefaultControlPath(),
            isRoot ? "/run/fenlux/host.sock" : "/tmp/fenlux-" + std::to_string(::geteuid()) + "/host.sock");
}

TEST(ControlSocket, IsInTheUsersRuntimeDirectoryByDefault) {
  const TemporaryDirectory directory;
  const RuntimeDirectory runtime(directory.Path().string());
  EXPECT_EQ(DefaultControlPath(), directory.Path() / "fenlux/host.sock");
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
