// Queries about known processes: the test's own and a child.
#include "refhost/services/processes/process_queries.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <boost/filesystem/operations.hpp>
#include <cstdlib>
#include <string>

#include "refhost/base/platform/own_process.h"
#include "refhost/base/text/utf_text.h"
#include "tests/support/temporary_directory.h"

namespace fenlux::refhost {
namespace {

std::uint32_t Own() { return static_cast<std::uint32_t>(::getpid()); }

// The id of a process that has ended and was waited for.
std::uint32_t EndedProcess() {
  const pid_t child = ::fork();
  if (child == 0) ::_exit(0);
  ::waitpid(child, nullptr, 0);
  return static_cast<std::uint32_t>(child);
}

TEST(ProcessQueries, DescribeTheirOwnProcess) {
  EXPECT_TRUE(ProcessRuns(Own()));
  EXPECT_EQ(NarrowFromWide(ProcessImagePath(Own())), OwnProgramPath().string());
  EXPECT_TRUE(RunningProcesses().contains(Own()));
  EXPECT_NE(ProcessCommandLine(Own()).find("fenlux_refhost_tests"), std::string::npos);
  EXPECT_EQ(ProcessCommandLine(Own()).find('\0'), std::string::npos);
  const std::vector<std::uint32_t> found = ProcessesOfImage(OwnProgramPath());
  EXPECT_TRUE(std::ranges::is_sorted(found));
  EXPECT_NE(std::ranges::find(found, Own()), found.end());
}

// The module keeps one for each process.
TEST(ProcessQueries, ReturnACommandLineWithoutUnusedMemory) {
  const std::string line = ProcessCommandLine(Own());
  EXPECT_LE(line.capacity(), line.size() + std::string().capacity());
}

TEST(ProcessQueries, FollowLinksToAnImage) {
  const std::vector<std::uint32_t> found = ProcessesOfImage("/proc/self/exe");
  EXPECT_NE(std::ranges::find(found, Own()), found.end());
}

TEST(ProcessQueries, ReturnNothingForAnEndedProcess) {
  const std::uint32_t ended = EndedProcess();
  EXPECT_FALSE(ProcessRuns(ended));
  EXPECT_EQ(ProcessImagePath(ended), L"");
  EXPECT_EQ(ProcessCommandLine(ended), "");
  EXPECT_FALSE(RunningProcesses().contains(ended));
}

// A process that runs a program until it is destroyed. The program gets the word "ready" as input and copies it to its
// output, so that the test knows it is running.
class Running {
 public:
  explicit Running(const std::string& command) {
    int input[2];
    int output[2];
    if (::pipe2(input, O_CLOEXEC) != 0 || ::pipe2(output, O_CLOEXEC) != 0) return;
    child = ::fork();
    if (child == 0) {
      ::dup2(input[0], STDIN_FILENO);
      ::dup2(output[1], STDOUT_FILENO);
      ::execl("/bin/sh", "sh", "-c", command.c_str(), nullptr);
      ::_exit(127);
    }
    ::close(input[0]);
    ::close(output[1]);
    end = input[1];
    char word[5];
    runs = ::write(end, "ready", 5) == 5 && ::read(output[0], word, 5) == 5;
    ::close(output[0]);
  }
  ~Running() {
    ::close(end);
    ::waitpid(child, nullptr, 0);
  }

  std::uint32_t Id() const { return static_cast<std::uint32_t>(child); }
  bool Runs() const { return runs; }

 private:
  pid_t child = -1;
  int end = -1;
  bool runs = false;
};

std::string LinkOf(std::uint32_t processId) {
  return boost::filesystem::read_symlink("/proc/" + std::to_string(processId) + "/exe").string();
}

TEST(ProcessQueries, GiveNoPathForAProgramThatIsMountedOverAnother) {
  const testing::TemporaryDirectory directory;
  const std::string cat = boost::filesystem::canonical("/bin/cat").string();
  const std::string shown = directory.MakeFile("head").string();
  const Running spoofed("exec unshare -Urm sh -c 'mount --bind " + cat + " " + shown + " && exec " + shown + "'");
  if (!spoofed.Runs()) GTEST_SKIP() << "this process may not mount in its own namespace";
  ASSERT_EQ(LinkOf(spoofed.Id()), shown);
  EXPECT_EQ(ProcessImagePath(spoofed.Id()), L"");
  EXPECT_TRUE(ProcessesOfImage(shown).empty());

  const Running plain("exec " + cat);
  ASSERT_TRUE(plain.Runs());
  EXPECT_EQ(NarrowFromWide(ProcessImagePath(plain.Id())), cat);
}

TEST(ProcessQueries, GiveNoPathForAProgramThatWasReplacedOrRemoved) {
  const testing::TemporaryDirectory directory;
  const std::string program = directory.Path().string() + "/cat";
  boost::filesystem::copy_file("/bin/cat", program);
  const Running old("exec " + program);
  ASSERT_TRUE(old.Runs());
  EXPECT_EQ(NarrowFromWide(ProcessImagePath(old.Id())), program);
  boost::filesystem::remove(program);
  EXPECT_EQ(ProcessImagePath(old.Id()), L"");
  boost::filesystem::copy_file("/bin/cat", program);
  EXPECT_EQ(ProcessImagePath(old.Id()), L"");
  // Not even if a file has the name that the kernel shows for the removed program.
  boost::filesystem::copy_file("/bin/cat", LinkOf(old.Id()));
  EXPECT_EQ(ProcessImagePath(old.Id()), L"");
}

TEST(ProcessQueries, FindNoProcessOfAMissingImage) {
  EXPECT_TRUE(ProcessesOfImage("/no/such/image").empty());
  EXPECT_TRUE(ProcessesOfImage("/").empty());
}

// While it exists, this process can open no more files.
class WithoutDescriptors {
 public:
  WithoutDescriptors() {
    ::getrlimit(RLIMIT_NOFILE, &before);
    const rlimit none{0, before.rlim_max};
    ::setrlimit(RLIMIT_NOFILE, &none);
  }
  ~WithoutDescriptors() { ::setrlimit(RLIMIT_NOFILE, &before); }

 private:
  rlimit before{};
};

TEST(ProcessQueries, DoNotMistakeALackOfDescriptorsForAnUnknownProgram) {
  const WithoutDescriptors lack;
  EXPECT_EQ(ProcessImagePath(Own()), kImageNotRead);
}

TEST(ProcessQueries, ReturnTheUserOfAnUndumpableProcess) {
  // Without privileges, the process keeps its user; root's takes another one.
  const std::uint32_t user = ::geteuid() == 0 ? 65534 : ::geteuid();
  int ready[2];
  int end[2];
  ASSERT_EQ(::pipe2(ready, O_CLOEXEC), 0);
  ASSERT_EQ(::pipe2(end, O_CLOEXEC), 0);
  const pid_t child = ::fork();
  if (child == 0) {
    ::close(end[1]);
    char byte = ::setresuid(user, user, user) == 0 && ::prctl(PR_SET_DUMPABLE, 0) == 0 ? 'y' : 'n';
    const bool told = ::write(ready[1], &byte, 1) == 1;
    ::_exit(told && ::read(end[0], &byte, 1) == 0 ? 0 : 1);
  }
  char byte = 0;
  EXPECT_EQ(::read(ready[0], &byte, 1), 1);
  EXPECT_EQ(byte, 'y');
  EXPECT_EQ(ProcessUser(static_cast<std::uint32_t>(child)), user);
  for (const int descriptor : {ready[0], ready[1], end[0], end[1]}) ::close(descriptor);
  ::waitpid(child, nullptr, 0);
}

TEST(ProcessQueries, ReportNoSessionForTheSystemsAccount) {
  if (::geteuid() != 0) GTEST_SKIP() << "only root is certain to own a process of the system's account";
  EXPECT_EQ(ProcessSession(Own()), 0U);
}

TEST(ProcessQueries, ResolveSystemImagesAgainstTheRoot) {
  EXPECT_EQ(SystemImagePath("system32\\csrss.exe"), "/system32/csrss.exe");
}

}  // namespace
}  // namespace fenlux::refhost
