// The privileges that a running host keeps, as the kernel reports them, and the files that it uses as root.
#include <gtest/gtest.h>
#include <linux/capability.h>
#include <sys/stat.h>
#include <unistd.h>

#include <boost/filesystem/operations.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "tests/integration/host_process.h"

namespace fenlux::testing {
namespace {

namespace fs = boost::filesystem;

constexpr std::uint64_t kReadAll = std::uint64_t{1} << CAP_DAC_READ_SEARCH;
constexpr std::uint64_t kKernelEvents =
    std::uint64_t{1} << CAP_SYS_ADMIN | std::uint64_t{1} << CAP_SYS_PTRACE | kReadAll;

bool IsRoot() { return ::geteuid() == 0; }

// A field of the text of a thread's status.
std::string Field(const std::string& status, const std::string& name) {
  std::istringstream stream(status);
  for (std::string line; std::getline(stream, line);) {
    if (line.rfind(name + ":\t", 0) == 0) return line.substr(name.size() + 2);
  }
  return {};
}

// Checks every thread of a running host; with a sanitizer, which adds a thread, only the main thread. As an ordinary
// user, the tests have no capabilities at all.
void ExpectCapabilities(const HostProcess& host, std::uint64_t expected) {
  const fs::path tasks = fs::path("/proc") / std::to_string(host.Id()) / "task";
  int threads = 0;
  for (const auto& task : fs::directory_iterator(tasks)) {
    const std::string status = FileText(task.path() / "status");
    if (Field(status, "NoNewPrivs").empty()) continue;  // the thread has ended
    ++threads;
    if (FENLUX_SANITIZED && task.path().filename() != std::to_string(host.Id())) continue;
    for (const char* field : {"CapPrm", "CapEff"}) {
      EXPECT_EQ(std::stoull(Field(status, field), nullptr, 16), IsRoot() ? expected : 0) << field;
    }
    EXPECT_EQ(std::stoull(Field(status, "CapInh"), nullptr, 16), 0U);
    EXPECT_EQ(std::stoull(Field(status, "CapAmb"), nullptr, 16), 0U);
    if (IsRoot()) {
      EXPECT_EQ(std::stoull(Field(status, "CapBnd"), nullptr, 16), expected);
    }
    EXPECT_EQ(Field(status, "NoNewPrivs"), "1");
  }
  EXPECT_GT(threads, 3);
}

TEST(Privileges, AreAllDroppedWithScriptedEvents) {
  HostSetup setup;
  setup.SetVariable("SUDO_UID", "");
  setup.WriteHost("");
  HostProcess host(setup, RunArguments(setup, {"--insecure-permissions"}));
  ASSERT_TRUE(host.WaitForError("Driver Interact Ready.")) << host.Err();
  ExpectCapabilities(host, 0);
  EXPECT_EQ(host.Stop().code, 0);
}

TEST(Privileges, AreKeptToReadTheFilesOfTheUserWhoCalledSudo) {
  HostSetup setup;
  setup.SetVariable("SUDO_UID", "54321");
  setup.WriteHost("");
  HostProcess host(setup, RunArguments(setup, {"--insecure-permissions"}));
  ASSERT_TRUE(host.WaitForError("Driver Interact Ready.")) << host.Err();
  ExpectCapabilities(host, kReadAll);
  EXPECT_EQ(setup.Control({"reload"}).code, 0);
  EXPECT_EQ(host.Stop().code, 0);
}

TEST(Privileges, AreKeptAsFarAsKernelEventsNeedThem) {
  HostSetup setup;
  setup.SetVariable("SUDO_UID", "");
  const std::string watched = setup.Directory("watched");
  setup.WriteHost("[emulator]\nsource = 'fanotify'\n[policy]\ndirectories = ['" + watched + "']\n");
  HostProcess host(setup, RunArguments(setup, {"--insecure-permissions"}));
  if (!host.WaitForError("[Add Monitor OK!][obj path]=" + watched)) {
    GTEST_SKIP() << "the kernel delivers no permission events here: " << host.Err();
  }
  ExpectCapabilities(host, kKernelEvents);
  EXPECT_EQ(host.Stop().code, 0);
}

// An undumpable process cannot be traced by other processes of its user, and its entries in /proc belong to root.
TEST(Privileges, OtherProcessesOfTheUserCannotTraceTheHost) {
  if (FENLUX_SANITIZED) GTEST_SKIP() << "sanitizers need a host that can be traced";
  HostSetup setup;
  setup.WriteHost("");
  const Arguments arguments = RunArguments(setup);
  Arguments asNobody{"--reuid=65534", "--regid=65534", "--clear-groups", HostProgram()};
  asNobody.insert(asNobody.end(), arguments.begin(), arguments.end());
  if (IsRoot()) {
    for (const char* path : {".", "host.toml"}) ASSERT_EQ(::chown((setup.Path() / path).c_str(), 65534, 65534), 0);
  }
  HostProcess host(setup, IsRoot() ? "setpriv" : HostProgram(), IsRoot() ? asNobody : arguments);
  if (!host.WaitForError("Driver Interact Ready.")) {
    GTEST_SKIP() << "the host does not run as an ordinary user here: " << host.Err();
  }
  struct stat status {};
  const std::string environment = "/proc/" + std::to_string(host.Id()) + "/environ";
  ASSERT_EQ(::stat(environment.c_str(), &status), 0);
  EXPECT_EQ(status.st_uid, 0U);
  EXPECT_EQ(host.Stop().code, 0);
}

class RootsFiles : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!IsRoot()) GTEST_SKIP() << "only root checks the files it uses";
    setup.WriteHost(std::string(kNoConnection) + "[emulator]\nscenario = 'scenario.toml'\n");
    setup.Write("scenario.toml", "");
  }
  void MakeWritableByAll(const std::string& file) { ASSERT_EQ(::chmod((setup.Path() / file).c_str(), 0666), 0); }
  // The host refuses the file, says what to do, and starts if told to use it.
  void ExpectRefused(const std::string& file, const Arguments& more = {}) {
    Arguments arguments{"--duration", "1"};
    arguments.insert(arguments.end(), more.begin(), more.end());
    const Outcome refused = setup.Run(RunArguments(setup, arguments));
    EXPECT_EQ(refused.code, 2) << refused.err;
    EXPECT_TRUE(Contains(
        refused.err, "fenlux-host: " + (setup.Path() / file).string() + " may be written by other users (mode 0666), "))
        << refused.err;
    EXPECT_TRUE(Contains(refused.err, "override this check with --insecure-permissions\n")) << refused.err;
    arguments.push_back("--insecure-permissions");
    const Outcome allowed = setup.Run(RunArguments(setup, arguments));
    EXPECT_EQ(allowed.code, 0) << allowed.err;
  }

  HostSetup setup;
};

TEST_F(RootsFiles, AConfigurationThatOthersMayWriteIsRefused) {
  MakeWritableByAll("host.toml");
  ExpectRefused("host.toml");
}

TEST_F(RootsFiles, AConfigurationBlockThatOthersMayWriteIsRefused) {
  setup.WriteHost("[module]\nconfig_block_file = 'block'\n");
  setup.Write("block", "bytes");
  MakeWritableByAll("block");
  ExpectRefused("block");
}

TEST_F(RootsFiles, AScenarioThatOthersMayWriteIsRefused) {
  MakeWritableByAll("scenario.toml");
  ExpectRefused("scenario.toml");
}

TEST_F(RootsFiles, AModuleThatOthersMayWriteIsRefused) {
  fs::copy_file(fs::path(HostProgram()).parent_path() / "libfenlux.so", setup.Path() / "module.so");
  MakeWritableByAll("module.so");
  ExpectRefused("module.so", {"--module", (setup.Path() / "module.so").string()});
}

TEST_F(RootsFiles, ALogThatOthersMayWriteIsRefused) {
  setup.WriteHost("[log]\nfile = 'host.log'\n");
  setup.Write("host.log", "");
  MakeWritableByAll("host.log");
  ExpectRefused("host.log");
}

TEST_F(RootsFiles, AConfigurationThatOthersMayWriteIsNotReloaded) {
  setup.WriteHost("");
  HostProcess host(setup, RunArguments(setup));
  ASSERT_TRUE(host.WaitForError("Driver Interact Ready.")) << host.Err();
  EXPECT_EQ(setup.Control({"reload"}).code, 0);
  MakeWritableByAll("host.toml");
  const Outcome refused = setup.Control({"reload"});
  EXPECT_EQ(refused.code, 1);
  EXPECT_TRUE(Contains(refused.err, "host.toml may be written by other users (mode 0666)")) << refused.err;
  EXPECT_EQ(host.Stop().code, 0);
}

TEST_F(RootsFiles, ItemsThatOthersMayWriteAreNotSent) {
  setup.Write("items.toml", "[[items]]\nopaque_text = 'a'\nvalue = 1\n");
  MakeWritableByAll("items.toml");
  Arguments arguments{"net-control", "add", "1", (setup.Path() / "items.toml").string()};
  const Outcome refused = setup.Control(arguments);
  EXPECT_EQ(refused.code, 2);
  EXPECT_TRUE(Contains(refused.err, "items.toml may be written by other users (mode 0666), ")) << refused.err;
  arguments.emplace_back("--insecure-permissions");
  EXPECT_EQ(setup.Control(arguments).code, 3) << "no host is running";
}

TEST_F(RootsFiles, ALogInADirectoryOfTheUserWhoCalledSudoIsWritten) {
  setup.SetVariable("SUDO_UID", "54321");
  const std::string directory = setup.Directory("logs");
  ASSERT_EQ(::chown(directory.c_str(), 54321, 0), 0);
  setup.WriteHost("[log]\nfile = 'logs/host.log'\n");
  HostProcess host(setup, RunArguments(setup));
  ASSERT_TRUE(host.WaitForError("Driver Interact Ready.")) << host.Err();
  EXPECT_EQ(host.Stop().code, 0);
  EXPECT_GT(fs::file_size(directory + "/host.log"), 0U);
}

}  // namespace
}  // namespace fenlux::testing
