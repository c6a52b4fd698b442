// Queries about known processes: the test's own and a child.
#include "refhost/services/processes/process_queries.h"

#include <gtest/gtest.h>
#include <windows.h>

#include <algorithm>

#include "refhost/base/platform/handle_win.h"
#include "refhost/base/platform/own_process.h"
#include "refhost/base/text/utf_text.h"

namespace fenlux::refhost {
namespace {

std::uint32_t Own() { return ::GetCurrentProcessId(); }

// A suspended process of this program.
class Child {
 public:
  explicit Child(std::wstring arguments) {
    std::wstring line = L"\"" + OwnProgramPath().native() + L"\" " + std::move(arguments);
    STARTUPINFOW startup{};
    startup.cb = sizeof(startup);
    PROCESS_INFORMATION information{};
    if (::CreateProcessW(nullptr, line.data(), nullptr, nullptr, FALSE, CREATE_SUSPENDED, nullptr, nullptr, &startup,
                         &information)) {
      process = Handle(information.hProcess);
      thread = Handle(information.hThread);
      id = information.dwProcessId;
    }
  }
  ~Child() { End(); }
  void End() {
    ::TerminateProcess(process.Get(), 0);
    ::WaitForSingleObject(process.Get(), INFINITE);
  }

  Handle process;
  Handle thread;
  std::uint32_t id = 0;
};

TEST(ProcessQueries, DescribeTheirOwnProcess) {
  EXPECT_TRUE(ProcessRuns(Own()));
  EXPECT_EQ(ProcessImagePath(Own()), OwnProgramPath().native());
  EXPECT_EQ(OwnProgramPath().filename(), "fenlux_windows_refhost_tests.exe");
  EXPECT_TRUE(RunningProcesses().contains(Own()));
  EXPECT_EQ(ProcessCommandLine(Own()), NarrowFromWide(::GetCommandLineW()));
  const std::vector<std::uint32_t> found = ProcessesOfImage(OwnProgramPath());
  EXPECT_TRUE(std::ranges::is_sorted(found));
  EXPECT_NE(std::ranges::find(found, Own()), found.end());
}

TEST(ProcessQueries, CompareImagesAsWindowsDoes) {
  std::wstring shouting = OwnProgramPath().native();
  ::CharUpperBuffW(shouting.data(), static_cast<DWORD>(shouting.size()));
  const std::vector<std::uint32_t> found = ProcessesOfImage(shouting);
  EXPECT_NE(std::ranges::find(found, Own()), found.end());
}

TEST(ProcessQueries, DescribeAnotherProcessWhileItRuns) {
  Child child(L"an argument with \u00DCml\u00E4uts");
  ASSERT_NE(child.id, 0U);
  EXPECT_TRUE(ProcessRuns(child.id));
  EXPECT_EQ(ProcessImagePath(child.id), OwnProgramPath().native());
  EXPECT_EQ(ProcessCommandLine(child.id),
            NarrowFromWide(L"\"" + OwnProgramPath().native() + L"\" an argument with \u00DCml\u00E4uts"));
  const std::vector<std::uint32_t> found = ProcessesOfImage(OwnProgramPath());
  EXPECT_NE(std::ranges::find(found, child.id), found.end());
  child.End();
  // Our open handle keeps the ended process's object alive.
  EXPECT_FALSE(ProcessRuns(child.id));
}

TEST(ProcessQueries, TruncateLongCommandLines) {
  Child child(std::wstring(6000, L'x'));
  ASSERT_NE(child.id, 0U);
  EXPECT_EQ(ProcessCommandLine(child.id).size(), 4096U);
}

TEST(ProcessQueries, DoNotRoundIds) {
  // The system's own calls round ids down to a multiple of four.
  EXPECT_FALSE(ProcessRuns(Own() + 1));
  EXPECT_EQ(ProcessImagePath(Own() + 1), L"");
  EXPECT_EQ(ProcessCommandLine(Own() + 2), "");
}

TEST(ProcessQueries, ReturnNothingForAnEndedProcess) {
  std::uint32_t ended = 0;
  {
    Child child(L"");
    ended = child.id;
    child.End();
  }
  EXPECT_FALSE(ProcessRuns(ended));
  EXPECT_EQ(ProcessImagePath(ended), L"");
  EXPECT_EQ(ProcessCommandLine(ended), "");
}

TEST(ProcessQueries, ReturnTheSession) {
  DWORD session = 0;
  ASSERT_TRUE(::ProcessIdToSessionId(Own(), &session));
  EXPECT_EQ(ProcessSession(Own()), session);
  EXPECT_EQ(ProcessSession(0xFFFFFFF0), 0U);
}

TEST(ProcessQueries, FindNoProcessOfAMissingImage) {
  EXPECT_TRUE(ProcessesOfImage("C:\\no\\such\\image.exe").empty());
  EXPECT_TRUE(ProcessesOfImage("C:\\").empty());
}

TEST(ProcessQueries, ResolveSystemImagesAgainstTheWindowsDirectory) {
  std::wstring directory(MAX_PATH, L'\0');
  directory.resize(::GetWindowsDirectoryW(directory.data(), MAX_PATH));
  EXPECT_EQ(SystemImagePath("system32\\csrss.exe").native(), directory + L"\\system32\\csrss.exe");
  EXPECT_TRUE(SystemImagePath("system32\\csrss.exe").is_absolute());
}

TEST(ProcessQueries, FindTheServiceController) {
  // Windows and Wine run one; Wine briefly runs two after its start. This user may not be allowed to query its image.
  std::uint32_t controller = 0;
  for (const std::uint64_t id : RunningProcesses()) {
    const std::wstring image = ProcessImagePath(static_cast<std::uint32_t>(id));
    if (::CompareStringOrdinal(image.c_str(), -1, SystemImagePath("system32\\services.exe").c_str(), -1, TRUE) ==
        CSTR_EQUAL) {
      controller = static_cast<std::uint32_t>(id);
    }
  }
  if (controller == 0) GTEST_SKIP() << "no service controller runs here that this user may query";
  const auto found = ProcessesOfImage(SystemImagePath("system32\\services.exe"));
  EXPECT_NE(std::find(found.begin(), found.end(), controller), found.end());
}

}  // namespace
}  // namespace fenlux::refhost
