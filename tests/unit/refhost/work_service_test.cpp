// The module's process queries and the creation of port clients.
#include "refhost/services/processes/work_service.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>

#include "refhost/base/config/config_reader.h"
#include "refhost/base/platform/own_process.h"
#include "refhost/base/text/utf_text.h"
#include "refhost/services/heap_buffer.h"
#include "refhost/services/processes/process_queries.h"

namespace fenlux::refhost {
namespace {

std::uint32_t OwnProcess() { return static_cast<std::uint32_t>(::getpid()); }

TEST(WorkService, TreatsProcessesOfAConfiguredSystemImageAsTheSystems) {
  WorkService work({{"system32\\csrss.exe", "/proc/self/exe"}}, {});
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
  EXPECT_EQ(work.SystemPath(path, "system32\\services.exe"), "/system32/services.exe");
  std::shared_ptr<ProcessIdList> found;
  work.FindProcessesByImage(found, path, 0);
  ASSERT_NE(found, nullptr);
  EXPECT_TRUE(found->empty());
}

TEST(WorkService, ReportsAnUnknownProcess) {
  const pid_t child = ::fork();
  if (child == 0) ::_exit(0);
  ::waitpid(child, nullptr, 0);
  WorkService work({}, {});
  EXPECT_EQ(work.QueryProcessValue(static_cast<std::uint32_t>(child), 0), kUnknownProcess);
  EXPECT_NE(work.QueryProcessValue(OwnProcess(), 0), kUnknownProcess);
}

TEST(WorkService, ReturnsTheImageAndTheCommandLineOfAProcess) {
  WorkService work({}, {});
  std::wstring wide;
  std::string narrow;
  EXPECT_EQ(NarrowFromWide(work.GetProcessWideText(wide, OwnProcess(), 0)), OwnProgramPath().string());
  EXPECT_EQ(work.GetProcessNarrowText(narrow, OwnProcess(), 0), ProcessCommandLine(OwnProcess()));
  std::shared_ptr<ProcessIdSet> running;
  work.GetRunningProcessIds(running, 0);
  ASSERT_NE(running, nullptr);
  EXPECT_TRUE(running->contains(OwnProcess()));
}

TEST(WorkService, ReadsTheWholeIdentityBlock) {
  std::array<std::uint8_t, 64> block{1, 1, 0, 0, 0, 0, 0, 5, 18};
  std::string text;
  EXPECT_EQ(WorkService({}, {}).GetIdentityText(text, block.data()), "S-1-5-18");
}

TEST(WorkService, PassesAllArgumentsToThePortClientMakerAndRecordsTheTime) {
  std::string name;
  std::uint32_t size = 0;
  std::uint32_t value = 0;
  std::shared_ptr<CBuf> context;
  bool hasHandler = false;
  WorkService work({}, [&](const std::string& portName, const std::shared_ptr<CBuf>& connectContext,
                           std::uint32_t maxMessageSize, const NotificationHandler& handler, std::uint32_t portValue) {
    name = portName;
    context = connectContext;
    size = maxMessageSize;
    hasHandler = static_cast<bool>(handler);
    value = portValue;
    return std::shared_ptr<CPortClient>();
  });
  const auto before = WorkService::Clock::now();
  EXPECT_LT(work.LastConnectionStart(), before);
  std::shared_ptr<CPortClient> client;
  const auto given = std::make_shared<HeapBuffer>(std::size_t{16});
  EXPECT_EQ(work.CreatePortClient(
                client, "\\Port", given, 196764, [](const void*, std::uint32_t) { return nullptr; }, 5),
            nullptr);
  EXPECT_EQ(name, "\\Port");
  EXPECT_EQ(context, given);
  EXPECT_EQ(size, 196764U);
  EXPECT_EQ(value, 5U);
  EXPECT_TRUE(hasHandler);
  EXPECT_GE(work.LastConnectionStart(), before);
}

TEST(WorkService, ReadsTheConfiguredImages) {
  ConfigErrors errors;
  const ConfigDocument document("'system32\\a.exe' = '/x/a'\n'b' = 1\n", "c.toml", errors);
  const SystemImages images = ReadSystemImages(document.Root());
  EXPECT_EQ(images.at("system32\\a.exe"), "/x/a");
  EXPECT_EQ(errors.Text(), "c.toml:2:7: b: must be a string\n");
}

}  // namespace
}  // namespace fenlux::refhost
