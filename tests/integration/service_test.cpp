// The host as a service: what it reports to the service manager, its unit, and its log file.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <boost/filesystem/operations.hpp>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>

#include "tests/integration/host_process.h"

namespace fenlux::testing {
namespace {

namespace fs = boost::filesystem;

std::string TextOf(const fs::path& file) {
  std::ifstream stream(file.string());
  return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
}

// Receives what a service reports to its manager.
class Manager {
 public:
  // A path, or with "@" an abstract name.
  explicit Manager(const std::string& name) : socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, name.data(), name.size());
    if (name.front() == '@') address.sun_path[0] = '\0';
    const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + name.size());
    EXPECT_EQ(::bind(socket, reinterpret_cast<const sockaddr*>(&address), size), 0);
  }
  ~Manager() { ::close(socket); }
  Manager(const Manager&) = delete;
  Manager& operator=(const Manager&) = delete;

  // Waits until a message contains the text, and returns that message; empty on timeout.
  std::string Await(const std::string& text) {
    std::string found;
    Eventually([&] {
      char message[4096];
      const ssize_t size = ::recv(socket, message, sizeof(message), MSG_DONTWAIT);
      if (size < 0) return false;
      found.assign(message, static_cast<std::size_t>(size));
      return Contains(found, text);
    });
    return Contains(found, text) ? found : std::string();
  }

 private:
  const int socket;
};

TEST(Service, ReportsItsStateToItsManager) {
  HostSetup setup;
  const std::string socket = (setup.Path() / "notify").string();
  Manager manager(socket);
  setup.SetVariable("NOTIFY_SOCKET", socket);
  setup.WriteHost("");
  HostProcess host(setup, RunArguments(setup));
  EXPECT_EQ(manager.Await("READY=1"), "READY=1");
  EXPECT_NE(manager.Await("STATUS=Connected to the driver"), "");
  host.Signal(SIGHUP);
  const std::string reloading = manager.Await("RELOADING=1");
  EXPECT_EQ(reloading.find("RELOADING=1\nMONOTONIC_USEC="), 0U) << reloading;
  timespec now{};
  ::clock_gettime(CLOCK_MONOTONIC, &now);
  const auto said = std::stoull(reloading.substr(reloading.rfind('=') + 1));
  EXPECT_LE(said, static_cast<unsigned long long>(now.tv_sec + 1) * 1'000'000);
  EXPECT_NE(manager.Await("READY=1"), "");
  EXPECT_EQ(setup.Control({"reload"}).code, 0);
  EXPECT_NE(manager.Await("RELOADING=1"), "");
  EXPECT_NE(manager.Await("READY=1"), "");
  host.Signal(SIGTERM);
  EXPECT_NE(manager.Await("STOPPING=1"), "");
  EXPECT_EQ(host.Wait().code, 0);
}

TEST(Service, IsReadyAndAliveWithoutADriver) {
  HostSetup setup;
  const std::string name = "@" + (setup.Path() / "notify").string();  // an abstract name
  Manager manager(name);
  setup.SetVariable("NOTIFY_SOCKET", name);
  setup.SetVariable("WATCHDOG_USEC", "300000");
  setup.WriteHost("[emulator.faults]\nrefuse_connects = 1000\n");
  HostProcess host(setup, RunArguments(setup));
  EXPECT_NE(manager.Await("READY=1"), "");
  EXPECT_NE(manager.Await("STATUS=Waiting for the driver"), "");
  for (int count = 0; count < 5; ++count) EXPECT_EQ(manager.Await("WATCHDOG=1"), "WATCHDOG=1");
  EXPECT_EQ(host.Stop().code, 0);
}

TEST(Service, SendsNoWatchdogReportsIfAnotherProcessIsWatched) {
  HostSetup setup;
  const std::string socket = (setup.Path() / "notify").string();
  Manager manager(socket);
  setup.SetVariable("NOTIFY_SOCKET", socket);
  setup.SetVariable("WATCHDOG_USEC", "300000");
  setup.SetVariable("WATCHDOG_PID", "1");
  setup.WriteHost(kNoConnection);
  HostProcess host(setup, RunArguments(setup, {"--duration", "2s"}));
  EXPECT_EQ(host.Wait().code, 0);
  std::string message = manager.Await("=");
  while (!Contains(message, "STOPPING=1")) {
    EXPECT_FALSE(Contains(message, "WATCHDOG")) << message;
    message = manager.Await("=");
  }
}

TEST(Service, WithoutAReachableManagerTheHostRunsAsUsual) {
  HostSetup setup;
  setup.SetVariable("NOTIFY_SOCKET", (setup.Path() / "nobody").string());
  setup.WriteHost(kNoConnection);
  EXPECT_EQ(setup.Run(RunArguments(setup, {"--duration", "300ms"})).code, 0);
}

// The names of the settings of the unit.
std::vector<std::string> UnitSettings() {
  std::vector<std::string> names;
  std::istringstream lines(TextOf(FENLUX_UNIT));
  for (std::string line; std::getline(lines, line);) {
    if (!line.empty() && line.front() != '#' && Contains(line, "=")) names.push_back(line.substr(0, line.find('=')));
  }
  return names;
}

// A host in its own mount namespace treats the mounts of all other processes as foreign.
TEST(ServiceUnit, HasNoSettingThatCreatesAMountNamespace) {
  const char* const forbidden[] = {"PrivateTmp",
                                   "PrivateDevices",
                                   "PrivateMounts",
                                   "PrivateNetwork",
                                   "PrivateIPC",
                                   "PrivateUsers",
                                   "PrivatePIDs",
                                   "ProtectSystem",
                                   "ProtectHome",
                                   "ProtectKernelTunables",
                                   "ProtectKernelModules",
                                   "ProtectKernelLogs",
                                   "ProtectControlGroups",
                                   "ProtectClock",
                                   "ProtectHostname",
                                   "ProtectProc",
                                   "ProcSubset",
                                   "ReadWritePaths",
                                   "ReadOnlyPaths",
                                   "InaccessiblePaths",
                                   "ExecPaths",
                                   "NoExecPaths",
                                   "ReadWriteDirectories",
                                   "ReadOnlyDirectories",
                                   "InaccessibleDirectories",
                                   "BindPaths",
                                   "BindReadOnlyPaths",
                                   "TemporaryFileSystem",
                                   "RootDirectory",
                                   "RootImage",
                                   "MountImages",
                                   "ExtensionImages",
                                   "ExtensionDirectories",
                                   "MountAPIVFS",
                                   "MountFlags",
                                   "DynamicUser",
                                   "NetworkNamespacePath",
                                   "IPCNamespacePath",
                                   "JoinsNamespaceOf",
                                   "LoadCredential",
                                   "SetCredential",
                                   "ImportCredential",
                                   "LogNamespace"};
  const std::vector<std::string> names = UnitSettings();
  EXPECT_GT(names.size(), 20U);
  for (const std::string& name : names) {
    for (const char* directive : forbidden) EXPECT_NE(name, directive);
  }
}

TEST(ServiceUnit, KeepsTheCapabilitiesThatTheHostKeeps) {
  const std::string unit = TextOf(FENLUX_UNIT);
  EXPECT_TRUE(Contains(unit, "\nCapabilityBoundingSet=CAP_SYS_ADMIN CAP_DAC_READ_SEARCH CAP_SYS_PTRACE\n"));
  EXPECT_TRUE(Contains(unit, "\nNoNewPrivileges=yes\n"));
  EXPECT_TRUE(Contains(unit, "\nSystemCallFilter=@system-service fanotify_init fanotify_mark open_by_handle_at\n"));
}

TEST(ServiceUnit, IsValid) {
  const HostSetup setup;
  if (HostProcess(setup, "sh", {"-c", "command -v systemd-analyze"}).Wait().code != 0) {
    GTEST_SKIP() << "skipped, because systemd-analyze is not installed";
  }
  std::string unit = TextOf(FENLUX_UNIT);
  const std::string installed = "/usr/bin/fenlux-host";
  for (std::size_t at = unit.find(installed); at != std::string::npos; at = unit.find(installed)) {
    unit.replace(at, installed.size(), HostProgram());
  }
  const std::string file = setup.Write("fenlux-host.service", unit);
  const Outcome outcome = HostProcess(setup, "systemd-analyze", {"verify", "--man=no", file}).Wait();
  EXPECT_EQ(outcome.code, 0) << outcome.err;
  EXPECT_FALSE(Contains(outcome.err, "fenlux-host.service")) << outcome.err;
}

// A host whose log has been renamed.
class RenamedLogFile : public ::testing::Test {
 protected:
  void SetUp() override {
    setup.WriteHost("[log]\nfile = 'host.log'\n");
    process = std::make_unique<HostProcess>(setup, RunArguments(setup));
    ASSERT_TRUE(process->WaitForError("Driver Interact Ready."));
    fs::rename(file, renamed);
  }

  HostProcess& Host() { return *process; }

  const HostSetup setup;
  const fs::path file = setup.Path() / "host.log";
  const fs::path renamed = setup.Path() / "host.log.1";

 private:
  std::unique_ptr<HostProcess> process;
};

TEST_F(RenamedLogFile, IsOpenedAgainOnSighup) {
  Host().Signal(SIGHUP);
  ASSERT_TRUE(Eventually([&] { return Contains(TextOf(file), "[host] configuration reloaded"); }));
  EXPECT_TRUE(Contains(TextOf(renamed), "Driver Interact Ready."));
  EXPECT_FALSE(Contains(TextOf(renamed), "configuration reloaded"));
  EXPECT_FALSE(Contains(TextOf(file), "Driver Interact Ready."));
  EXPECT_EQ(Host().Stop().code, 0);
}

TEST_F(RenamedLogFile, IsOpenedAgainEvenIfTheConfigurationHasErrors) {
  setup.Write("host.toml", "nonsense = 1\n");
  Host().Signal(SIGHUP);
  ASSERT_TRUE(Eventually([&] { return Contains(TextOf(file), "[host] configuration not reloaded"); }));
  EXPECT_EQ(Host().Stop().code, 0);
}

TEST_F(RenamedLogFile, StaysOpenIfItCannotBeOpenedAgain) {
  setup.Directory("host.log");
  Host().Signal(SIGHUP);
  EXPECT_TRUE(Host().WaitForError("[host] still logging to the old file: the log file " + file.string() +
                                  " cannot be opened for writing: Is a directory\n"));
  EXPECT_TRUE(Eventually([&] { return Contains(TextOf(renamed), "configuration reloaded"); }));
  EXPECT_EQ(Host().Stop().code, 0);
}

// The installed snippet with the log's directory, its owner and the service replaced by the test's own.
class LogRotation {
 public:
  explicit LogRotation(HostSetup& hostSetup) : setup(hostSetup) {
    std::string snippet = TextOf(FENLUX_LOGROTATE);
    Replace(snippet, "/var/log/fenlux", setup.Directory("logs"));
    Replace(snippet, "root root", Shell("echo $(id -un) $(id -gn)"));
    configuration = setup.Write("logrotate.conf", snippet);
    fs::permissions(configuration, fs::owner_read | fs::owner_write);
    fs::permissions(setup.Path() / "logs", fs::owner_all);
    const std::string directory = setup.Directory("bin");
    fs::permissions(setup.Write("bin/systemctl",
                                "#!/bin/sh\necho \"$*\" >>\"$SYSTEMCTL_CALLS\"\n"
                                "case \"$*\" in *' -s HUP fenlux-host.service')\n"
                                "kill -HUP \"$(cat \"$HOST_PID\")\";;\nesac\n"),
                    fs::owner_all);
    setup.SetVariable("SYSTEMCTL_CALLS", (setup.Path() / "calls").string());
    setup.SetVariable("HOST_PID", (setup.Path() / "pid").string());
    setup.SetVariable("PATH", directory + ":" + std::getenv("PATH") + ":/usr/sbin:/sbin");
  }

  bool Installed() const { return Shell("command -v logrotate") != ""; }
  Outcome Rotate() const {
    return HostProcess(
               setup, "sh",
               {"-c", "exec logrotate --force --state " + (setup.Path() / "state").string() + " " + configuration})
        .Wait();
  }

 private:
  std::string Shell(const std::string& command) const {
    const std::string out = HostProcess(setup, "sh", {"-c", command}).Wait().out;
    return out.substr(0, out.find('\n'));
  }
  static void Replace(std::string& text, const std::string& what, const std::string& by) {
    std::size_t at = text.find(what);
    EXPECT_NE(at, std::string::npos) << what;
    for (; at != std::string::npos; at = text.find(what, at + by.size())) text.replace(at, what.size(), by);
  }

  HostSetup& setup;
  std::string configuration;
};

TEST(LogFile, IsRotatedByLogrotateWhileTheHostRuns) {
  HostSetup setup;
  const LogRotation rotation(setup);
  if (!rotation.Installed()) {
    GTEST_SKIP() << "skipped, because logrotate is not installed: scripts/setup.sh --tools";
  }
  setup.WriteHost("[log]\nfile = 'logs/host.log'\n");
  HostProcess host(setup, RunArguments(setup));
  setup.Write("pid", std::to_string(host.Id()));
  ASSERT_TRUE(Eventually([&] { return Contains(setup.Read("logs/host.log"), "Driver Interact Ready."); }));

  const Outcome first = rotation.Rotate();
  EXPECT_EQ(first.code, 0) << first.err;
  EXPECT_EQ(setup.Read("calls"),
            "--quiet is-active fenlux-host.service\n"
            "kill --kill-who=main -s HUP fenlux-host.service\n");
  ASSERT_TRUE(Eventually([&] { return Contains(setup.Read("logs/host.log"), "[host] configuration reloaded"); }));
  EXPECT_TRUE(Contains(setup.Read("logs/host.log.1"), "Driver Interact Ready."));
  EXPECT_FALSE(Contains(setup.Read("logs/host.log"), "Driver Interact Ready."));
  EXPECT_EQ(fs::status(setup.Path() / "logs/host.log").permissions(), fs::owner_read | fs::owner_write);

  const Outcome second = rotation.Rotate();
  EXPECT_EQ(second.code, 0) << second.err;
  EXPECT_TRUE(fs::exists(setup.Path() / "logs/host.log.2.gz"));
  ASSERT_TRUE(Eventually([&] { return Contains(setup.Read("logs/host.log"), "[host] configuration reloaded"); }));
  EXPECT_EQ(setup.Control({"stop"}).code, 0);
  EXPECT_TRUE(Eventually([&] { return Contains(setup.Read("logs/host.log"), "Driver interact exit."); }));
  EXPECT_EQ(host.Stop().code, 0);
}

TEST(Output, AWriteErrorGivesExitCodeOne) {
  const HostSetup setup;
  setup.WriteHost(kNoConnection);
  const std::string program = HostProgram();
  const std::string config = (setup.Path() / "host.toml").string();
  const auto full = [&](const std::string& arguments) {
    return HostProcess(setup, "sh", {"-c", "exec " + program + " " + arguments + " >/dev/full"}).Wait();
  };
  const std::string reason = "fenlux-host: standard output cannot be written: No space left on device\n";
  const Outcome run = full("run --config " + config + " --duration 300ms");
  EXPECT_EQ(run.code, 1);
  EXPECT_TRUE(Contains(run.err, reason)) << run.err;
  for (const std::string arguments : {"--help", "--version", "decode " FENLUX_GOLDEN_CAPTURE}) {
    const Outcome outcome = full(arguments);
    EXPECT_EQ(outcome.code, 1) << arguments;
    EXPECT_EQ(outcome.err, reason) << arguments;
  }
  const Outcome check = full("check " + config);
  EXPECT_EQ(check.code, 1);
  EXPECT_EQ(check.err, reason);

  setup.WriteHost("");
  HostProcess host(setup, RunArguments(setup));
  ASSERT_TRUE(host.WaitForError("Driver Interact Ready."));
  const Outcome control = full("ctl --config " + config + " status");
  EXPECT_EQ(control.code, 1);
  EXPECT_EQ(control.err, reason);
  EXPECT_EQ(host.Stop().code, 0);
}

}  // namespace
}  // namespace fenlux::testing
