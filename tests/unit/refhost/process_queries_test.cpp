// Queries about processes that the test knows: its own and a child.
#include "refhost/services/processes/process_queries.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <boost/filesystem/operations.hpp>
#include <cstdlib>

#include "refhost/base/platform/own_process.h"
#include "refhost/base/text/utf_text.h"

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

TEST(ProcessQueries, FindNoProcessOfAMissingImage) {
  EXPECT_TRUE(ProcessesOfImage("/no/such/image").empty());
  EXPECT_TRUE(ProcessesOfImage("/").empty());
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
