// `fenlux-host ctl watch`: events as they happen, for several watchers, none of which can delay the host.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <memory>
#include <vector>

#include "tests/integration/host_process.h"

namespace fenlux::testing {
namespace {

constexpr char kWatchTraffic[] =
    "repeat = 0\n"
    "[[steps]]\nnotify = 4098\npath = '/srv/a.txt'\ncount = 3\n"
    "[[steps]]\nnotify = 4098\npath = '/srv/a.secret'\n"
    "[[steps]]\nnotify = 4100\npath = '/home/b.txt'\n"
    "[[steps]]\npause_ms = 20\n";

class Watch : public ::testing::Test {
 protected:
  void Start(const std::string& scenario) {
    setup.WriteHost(kSecretsRule, scenario);
    host = std::make_unique<HostProcess>(setup, RunArguments(setup));
    ASSERT_TRUE(host->WaitForError("Driver Interact Ready."));
  }
  Arguments WatchArguments(const Arguments& options) const {
    Arguments arguments{"ctl", "--socket", (setup.Path() / "control/host.sock").string(), "watch"};
    arguments.insert(arguments.end(), options.begin(), options.end());
    return arguments;
  }

  HostSetup setup;
  std::unique_ptr<HostProcess> host;
};

TEST_F(Watch, ShowsEachWatcherTheEventsItRequested) {
  Start(kWatchTraffic);
  HostProcess refused(setup, WatchArguments({"--refused"}));
  HostProcess home(setup, WatchArguments({"--path", "/home/**", "--code", "4100", "--json"}));
  ASSERT_TRUE(refused.WaitForOutput("\n", 5));
  ASSERT_TRUE(home.WaitForOutput("\n", 5));
  const std::string lines = refused.Out();
  EXPECT_TRUE(Contains(lines, " /srv/a.secret by rule \"secrets\" (")) << lines;
  EXPECT_EQ(CountOf(lines, "/srv/a.txt"), 0u) << lines;
  const std::string objects = home.Out();
  EXPECT_EQ(JsonValue(objects.substr(0, objects.find('\n')), "path"), "/home/b.txt") << objects;
  EXPECT_EQ(JsonValue(objects.substr(0, objects.find('\n')), "code"), "4100");
  EXPECT_EQ(CountOf(objects, "\"path\":\"/srv/"), 0u) << objects;  // the clone itself may be in /srv
  refused.Signal(SIGINT);
  EXPECT_EQ(refused.Wait().code, 128 + SIGINT);
}

// A watcher whose output is full stops requesting events. The host and the other watcher continue. When the output is
// read again, the slow watcher says how many events it lost.
TEST_F(Watch, AWatcherThatDoesNotReadLosesEventsAndDelaysNobody) {
  Start("repeat = 0\n[[steps]]\nnotify = 4098\npath = '/srv/a.txt'\ncount = 50\n[[steps]]\npause_ms = 5\n");
  const std::string pipe = (setup.Path() / "pipe").string();
  ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
  const int reader = ::open(pipe.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  ASSERT_GE(reader, 0);
  const std::string command =
      "exec " + HostProgram() + " ctl --socket " + (setup.Path() / "control/host.sock").string() + " watch >" + pipe;
  HostProcess slow(setup, "sh", {"-c", command});
  HostProcess quick(setup, WatchArguments({}));
  ASSERT_TRUE(quick.WaitForOutput("\n", 1000));
  ASSERT_TRUE(Eventually([reader] {  // the slow one has begun
    int size = 0;
    return ::ioctl(reader, FIONREAD, &size) == 0 && size > 0;
  }));
  const auto delivered = [&] { return std::stoull(JsonValue(setup.ControlJson({"status"}), "delivered")); };
  const std::uint64_t before = delivered();
  ASSERT_TRUE(Eventually([&] { return delivered() > before + 20'000; })) << "the host waits for the slow watcher";
  EXPECT_TRUE(quick.WaitForOutput("\n", 2000)) << "the quick watcher waits for the slow one";

  std::string text;
  ASSERT_TRUE(Eventually([&] {
    std::array<char, 65536> chunk{};
    for (ssize_t count = 0; (count = ::read(reader, chunk.data(), chunk.size())) > 0;) {
      text.append(chunk.data(), static_cast<std::size_t>(count));
    }
    return Contains(text, " events lost: this watcher is too slow\n");
  })) << text.substr(0, 1000);
  ::close(reader);
}

TEST_F(Watch, ManyWatchersDoNotBlockOtherControlClients) {
  Start(kWatchTraffic);
  std::vector<std::unique_ptr<HostProcess>> watchers;  // more than the channel serves at once
  for (int index = 0; index < 12; ++index) {
    watchers.push_back(std::make_unique<HostProcess>(setup, WatchArguments({"--refused"})));
  }
  for (const auto& watcher : watchers) ASSERT_TRUE(watcher->WaitForOutput("\n", 2));
  EXPECT_EQ(setup.Control({"status"}).code, 0);
}

TEST_F(Watch, EndsWithTheHost) {
  Start(kWatchTraffic);
  HostProcess watcher(setup, WatchArguments({}));
  ASSERT_TRUE(watcher.WaitForOutput("\n"));
  EXPECT_EQ(host->Stop().code, 0);
  const Outcome outcome = watcher.Wait();
  EXPECT_EQ(outcome.code, 3) << outcome.err;
}

TEST_F(Watch, WithoutAHostExitsWithThree) { EXPECT_EQ(setup.Run(WatchArguments({})).code, 3); }

}  // namespace
}  // namespace fenlux::testing
