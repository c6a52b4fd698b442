// The module's process queries on Windows, where paths have drive letters.
#include "refhost/services/processes/work_service.h"

#include <gtest/gtest.h>
#include <windows.h>

#include <algorithm>
#include <array>

#include "refhost/base/platform/own_process.h"
#include "refhost/base/text/utf_text.h"
#include "refhost/services/processes/process_queries.h"

namespace fenlux::refhost {
namespace {

std::uint32_t OwnProcess() { return ::GetCurrentProcessId(); }

TEST(WorkService, TreatsProcessesOfAConfiguredSystemImageAsTheSystems) {
  WorkService work({{"system32\\csrss.exe", OwnProgramPath()}}, {});
  boost::filesystem::path path;
  EXPECT_EQ(work.SystemPath(path, "system32\\csrss.exe"), OwnProgramPath());
  std::shared_ptr<ProcessIdList> found;
  work.FindProcessesByImage(found, path, 0);
  ASSERT_NE(found, nullptr);
  EXPECT_NE(std::ranges::find(*found, OwnProcess()), found->end());
  EXPECT_EQ(work.QueryProcessValue(OwnProcess(), 0), 0U);
}

TEST(WorkService, ResolvesOtherSystemImagesAgainstTheSystem) {
  WorkService work({}, {});
  boost::filesystem::path path;
  EXPECT_EQ(work.SystemPath(path, "system32\\services.exe"), SystemImagePath("system32\\services.exe"));
}

TEST(WorkService, ReportsAnUnknownProcess) {
  WorkService work({}, {});
  EXPECT_EQ(work.QueryProcessValue(0xFFFFFFF0, 0), kUnknownProcess);
  EXPECT_EQ(work.QueryProcessValue(OwnProcess(), 0), ProcessSession(OwnProcess()));
}

TEST(WorkService, ReturnsTheImageAndTheCommandLineOfAProcess) {
  WorkService work({}, {});
  std::wstring wide;
  std::string narrow;
  EXPECT_EQ(work.GetProcessWideText(wide, OwnProcess(), 0), OwnProgramPath().native());
  EXPECT_EQ(work.GetProcessNarrowText(narrow, OwnProcess(), 0), NarrowFromWide(::GetCommandLineW()));
  std::shared_ptr<ProcessIdSet> running;
  work.GetRunningProcessIds(running, 0);
  ASSERT_NE(running, nullptr);
  EXPECT_TRUE(running->contains(OwnProcess()));
}

TEST(WorkService, FormatsASecurityIdentifierOfTheSystem) {
  // The local system's account in the system's own layout.
  std::array<std::uint8_t, 64> block{};
  DWORD size = static_cast<DWORD>(block.size());
  ASSERT_TRUE(::CreateWellKnownSid(WinLocalSystemSid, nullptr, block.data(), &size));
  std::string text;
  EXPECT_EQ(WorkService({}, {}).GetIdentityText(text, block.data()), "S-1-5-18");
}

}  // namespace
}  // namespace fenlux::refhost
