// A run ends when it is told to, even if its outputs, its configuration or its driver block.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/fanotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <boost/filesystem/operations.hpp>
#include <chrono>
#include <string>

#include "tests/integration/host_process.h"

namespace fenlux::testing {
namespace {

// A pipe that is full and that nobody reads.
class StuckPipe {
 public:
  StuckPipe(const HostSetup& setup, const std::string& name) : path((setup.Path() / name).string()) {
    EXPECT_EQ(::mkfifo(path.c_str(), 0600), 0);
    descriptor = ::open(path.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
    EXPECT_GE(descriptor, 0);
    const std::string text(4096, 'x');
    while (::write(descriptor, text.data(), text.size()) > 0) {
    }
  }
  ~StuckPipe() { ::close(descriptor); }
  StuckPipe(const StuckPipe&) = delete;
  StuckPipe& operator=(const StuckPipe&) = delete;

  const std::string path;

 private:
  int descriptor = -1;
};

// The arguments of `sh` that run the host with other outputs; the host keeps the shell's process id.
Arguments Redirected(const HostSetup& setup, const std::string& redirections) {
  return {"-c", "exec \"$0\" run --config \"$1\" " + redirections, FENLUX_PROGRAM_DIRECTORY "/fenlux-host",
          (setup.Path() / "host.toml").string()};
}

// The default: outputs and drivers are stuck on purpose here, so the host uses all of this time.
constexpr char kDefaultLimit[] = "stop_timeout_ms = 3000\n";

// Waits until the host answers on its control socket and has a connection.
bool AwaitReady(const HostSetup& setup) {
  return Eventually([&] {
    const Outcome status = setup.Control({"--json", "status"});
    return status.code == 0 && JsonValue(status.out, "ready") == "true";
  });
}

TEST(Stop, EndsWhileNobodyReadsStandardError) {
  const HostSetup setup;
  setup.WriteHost(kDefaultLimit);
  const StuckPipe pipe(setup, "pipe");
  HostProcess host(setup, "sh", Redirected(setup, "2>" + pipe.path));
  ASSERT_TRUE(AwaitReady(setup));
  const Outcome outcome = host.Stop();
  EXPECT_EQ(outcome.code, 0);
  EXPECT_EQ(CountOf(outcome.out, "summary\n"), 1U) << outcome.out;
}

TEST(Stop, TheHostServesAndEndsWhileNobodyReadsStandardOutput) {
  const HostSetup setup;
  setup.WriteHost(kDefaultLimit);
  const StuckPipe pipe(setup, "pipe");
  HostProcess host(setup, "sh", Redirected(setup, ">" + pipe.path));
  ASSERT_TRUE(host.WaitForError("Driver Interact Ready."));
  host.Signal(SIGUSR1);
  host.Signal(SIGHUP);  // both signals may be pending at once; the system then delivers SIGHUP first
  ASSERT_TRUE(host.WaitForError("[host] configuration reloaded"));
  host.Signal(SIGUSR1);
  ASSERT_TRUE(AwaitReady(setup));
  host.Signal(SIGHUP);
  ASSERT_TRUE(host.WaitForError("[host] configuration reloaded", 2));
  EXPECT_EQ(host.Stop().code, 0);
}

TEST(Stop, EndsWhileNobodyReadsEitherOutput) {
  const HostSetup setup;
  setup.WriteHost(kDefaultLimit);
  const StuckPipe pipe(setup, "pipe");
  HostProcess host(setup, "sh", Redirected(setup, ">" + pipe.path + " 2>&1"));
  ASSERT_TRUE(AwaitReady(setup));
  host.Signal(SIGUSR1);
  EXPECT_EQ(host.Stop().code, 0);
}

TEST(Stop, AFailedStartEndsWhileNobodyReadsStandardError) {
  const HostSetup setup;
  setup.WriteHost("surprise = 1\n");
  const StuckPipe pipe(setup, "pipe");
  HostProcess host(setup, "sh", Redirected(setup, "2>" + pipe.path));
  EXPECT_EQ(host.Wait().code, 2);
}

TEST(Stop, AConfigurationThatIsANamedPipeIsRefusedAtOnce) {
  const HostSetup setup;
  ASSERT_EQ(::mkfifo((setup.Path() / "host.toml").c_str(), 0600), 0);
  const Outcome outcome = setup.Run(RunArguments(setup));
  EXPECT_EQ(outcome.code, 2);
  EXPECT_TRUE(Contains(outcome.err, "host.toml:1:1: (file): cannot be read: it is not a regular file")) << outcome.err;
}

TEST(Stop, AReloadOfANamedPipeIsRefusedAtOnce) {
  const HostSetup setup;
  setup.WriteHost(kDefaultLimit);
  HostProcess host(setup, RunArguments(setup));
  ASSERT_TRUE(host.WaitForError("Driver Interact Ready."));
  boost::filesystem::remove(setup.Path() / "host.toml");
  ASSERT_EQ(::mkfifo((setup.Path() / "host.toml").c_str(), 0600), 0);
  host.Signal(SIGHUP);
  EXPECT_TRUE(host.WaitForError("cannot be read: it is not a regular file"));
  EXPECT_EQ(host.Stop().code, 0);
}

// Blocks every process that opens a file, as an unresponsive file system does.
class HeldFile {
 public:
  explicit HeldFile(const std::string& path)
      : group(::fanotify_init(FAN_CLASS_CONTENT | FAN_CLOEXEC | FAN_NONBLOCK, O_RDONLY | O_CLOEXEC)) {
    holds = group >= 0 && ::fanotify_mark(group, FAN_MARK_ADD, FAN_OPEN_PERM, AT_FDCWD, path.c_str()) == 0;
  }
  ~HeldFile() {
    if (group >= 0) ::close(group);  // lets the blocked processes continue
  }
  HeldFile(const HeldFile&) = delete;
  HeldFile& operator=(const HeldFile&) = delete;

  bool Holds() const { return holds; }
  // Waits until a process opens the file.
  bool AwaitOpener() const {
    pollfd event{group, POLLIN, 0};
    return ::poll(&event, 1, static_cast<int>(std::chrono::milliseconds(kTimeout).count())) == 1;
  }

 private:
  int group;
  bool holds = false;
};

TEST(Stop, EndsWhileItsConfigurationCannotBeOpened) {
  const HostSetup setup;
  setup.WriteHost(kDefaultLimit);
  HostProcess host(setup, RunArguments(setup));
  ASSERT_TRUE(host.WaitForError("Driver Interact Ready."));
  const HeldFile held((setup.Path() / "host.toml").string());
  if (!held.Holds()) GTEST_SKIP() << "this process may not block the openers of a file";
  host.Signal(SIGHUP);
  ASSERT_TRUE(held.AwaitOpener());
  EXPECT_EQ(host.Stop().code, 0);
}

TEST(Stop, AStartEndsWhileItsConfigurationCannotBeOpened) {
  const HostSetup setup;
  setup.WriteHost(kDefaultLimit);
  const HeldFile held((setup.Path() / "host.toml").string());
  if (!held.Holds()) GTEST_SKIP() << "this process may not block the openers of a file";
  HostProcess host(setup, RunArguments(setup));
  ASSERT_TRUE(held.AwaitOpener());
  EXPECT_EQ(host.Stop().code, 128 + SIGTERM);
}

constexpr char kSlowDriver[] =
    "[[steps]]\nawait_request = 24\nlimit_ms = 240000\n"
    "[[steps]]\nfaults = { delay_requests_ms = 3600000 }\n";

TEST(Stop, EndsWhileTheDriverDoesNotAnswerTheFirstRequests) {
  const HostSetup setup;
  setup.WriteHost(std::string(kDefaultLimit) + "[emulator.faults]\ndelay_requests_ms = 3600000\n");
  HostProcess host(setup, RunArguments(setup));
  ASSERT_TRUE(host.WaitForError("[emulator] Connection 1 opened"));
  EXPECT_EQ(host.Stop().code, 0);
}

TEST(Stop, EndsWhileTheDriverDoesNotAnswerTheRequestsOfTheStop) {
  const HostSetup setup;
  setup.WriteHost(kDefaultLimit, kSlowDriver);
  HostProcess host(setup, RunArguments(setup));
  ASSERT_TRUE(host.WaitForError("[emulator] scenario finished"));
  const Outcome outcome = host.Stop();
  EXPECT_EQ(outcome.code, 0);
  EXPECT_TRUE(Contains(outcome.err, "[host] the driver does not answer; stopping without clearing it")) << outcome.err;
}

TEST(Stop, EndsWhileAnotherStopWaitsForTheDriver) {
  const HostSetup setup;
  setup.WriteHost(kDefaultLimit, kSlowDriver);
  HostProcess host(setup, RunArguments(setup));
  ASSERT_TRUE(host.WaitForError("[emulator] scenario finished"));
  Arguments stop{"ctl", "--socket", (setup.Path() / "control/host.sock").string(), "stop", "--clear"};
  HostProcess control(setup, stop);
  // The module holds its lock while it waits for the driver. Operations that need the module wait behind it, and so do
  // the host's regular checks; signals must not.
  host.Signal(SIGUSR1);
  ASSERT_TRUE(host.WaitForOutput("protocol_violations"));
  host.Signal(SIGUSR1);
  ASSERT_TRUE(host.WaitForOutput("protocol_violations", 2));
  EXPECT_EQ(host.Stop().code, 0);
  control.Wait();
}

}  // namespace
}  // namespace fenlux::testing
