// A run ends when it is told to, whatever its outputs and its driver do.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

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

// Waits until the host answers on its control socket and has a connection.
bool AwaitReady(const HostSetup& setup) {
  return Eventually([&] {
    const Outcome status = setup.Control({"--json", "status"});
    return status.code == 0 && JsonValue(status.out, "ready") == "true";
  });
}

TEST(Stop, EndsWhileNobodyReadsStandardError) {
  const HostSetup setup;
  setup.WriteHost("");
  const StuckPipe pipe(setup, "pipe");
  HostProcess host(setup, "sh", Redirected(setup, "2>" + pipe.path));
  ASSERT_TRUE(AwaitReady(setup));
  const Outcome outcome = host.Stop();
  EXPECT_EQ(outcome.code, 0);
  EXPECT_EQ(CountOf(outcome.out, "summary\n"), 1U) << outcome.out;
}

TEST(Stop, TheHostServesAndEndsWhileNobodyReadsStandardOutput) {
  const HostSetup setup;
  setup.WriteHost("");
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
  setup.WriteHost("");
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

constexpr char kSlowDriver[] =
    "[[steps]]\nawait_request = 24\nlimit_ms = 60000\n"
    "[[steps]]\nfaults = { delay_requests_ms = 3600000 }\n";

TEST(Stop, EndsWhileTheDriverDoesNotAnswerTheFirstRequests) {
  const HostSetup setup;
  setup.WriteHost("[emulator.faults]\ndelay_requests_ms = 3600000\n");
  HostProcess host(setup, RunArguments(setup));
  ASSERT_TRUE(host.WaitForError("[emulator] Connection 1 opened"));
  EXPECT_EQ(host.Stop().code, 0);
}

TEST(Stop, EndsWhileTheDriverDoesNotAnswerTheRequestsOfTheStop) {
  const HostSetup setup;
  setup.WriteHost("", kSlowDriver);
  HostProcess host(setup, RunArguments(setup));
  ASSERT_TRUE(host.WaitForError("[emulator] scenario finished"));
  const Outcome outcome = host.Stop();
  EXPECT_EQ(outcome.code, 0);
  EXPECT_TRUE(Contains(outcome.err, "[host] the driver does not answer; stopping without clearing it")) << outcome.err;
}

TEST(Stop, EndsWhileAnotherStopWaitsForTheDriver) {
  const HostSetup setup;
  setup.WriteHost("", kSlowDriver);
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
