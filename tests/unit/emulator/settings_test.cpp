// The [emulator] table of a host's configuration.
#include "refhost/emulator/emulator_settings.h"

#include <gtest/gtest.h>

#include "refhost/base/config/config_reader.h"

namespace fenlux::testing {
namespace {

using namespace refhost;

EmulatorSettings ReadSettings(const std::string& text, std::string& errorTexts) {
  ConfigErrors errors;
  const ConfigDocument document(text, "/etc/host/host.toml", errors);
  const ConfigTable table = document.Root().Table("emulator");
  const EmulatorSettings settings = ReadEmulatorSettings(table);
  table.Finish();
  errorTexts = errors.Text();
  return settings;
}

void ExpectNextToTheConfiguration(const boost::filesystem::path& path, const std::string& name) {
  EXPECT_TRUE(path.is_absolute() || path.has_root_directory()) << path;
  EXPECT_EQ(path.parent_path().filename(), "host") << path;
  EXPECT_EQ(path.filename(), name) << path;
}

TEST(EmulatorSettings, HaveDefaults) {
  std::string errors;
  EXPECT_EQ(ReadSettings("", errors), EmulatorSettings());
  EXPECT_EQ(errors, "");
}

TEST(EmulatorSettings, AreReadCompletely) {
  std::string errors;
  const EmulatorSettings settings = ReadSettings(R"([emulator]
source = "fanotify"
driver_version = 7
deadline_ms = 250
stop_grace_ms = 0
unjudged = "refuse"
[emulator.faults]
refuse_connects = 3
drop_after = 100
driver_version = 8
version_reply = "short"
delay_requests_ms = 1
delay_replies_ms = 2
fail_send = { command = 22, nth = 5, exception = "other" }
[emulator.kernel]
follow_policy = false
directories = ["a", "b"]
recursive = true
events = ["access", "exec"]
threads = 4
refusing_verdicts = [4]
)",
                                                 errors);
  EXPECT_EQ(errors, "");
  EXPECT_EQ(settings.source, EventSourceKind::kFanotify);
  EXPECT_EQ(settings.driverVersion, 7u);
  EXPECT_EQ(settings.deadline, std::chrono::milliseconds(250));
  EXPECT_EQ(settings.stopGrace, std::chrono::milliseconds(0));
  EXPECT_EQ(settings.unjudged, UnjudgedPolicy::kRefuse);
  EXPECT_EQ(settings.faults.refuseConnects, 3u);
  EXPECT_EQ(settings.faults.dropAfter, 100u);
  EXPECT_EQ(settings.faults.driverVersion, 8u);
  EXPECT_EQ(settings.faults.versionReply, VersionReply::kShort);
  EXPECT_EQ(settings.faults.delayRequests, std::chrono::milliseconds(1));
  EXPECT_EQ(settings.faults.delayReplies, std::chrono::milliseconds(2));
  EXPECT_EQ(settings.faults.failSend, (FailingSend{22, 5, SendFailure::kNotAnException}));
  EXPECT_FALSE(settings.kernel.followPolicy);
  ASSERT_EQ(settings.kernel.directories.size(), 2u);
  ExpectNextToTheConfiguration(settings.kernel.directories[0], "a");
  ExpectNextToTheConfiguration(settings.kernel.directories[1], "b");
  EXPECT_TRUE(settings.kernel.recursive);
  EXPECT_FALSE(settings.kernel.onOpen);
  EXPECT_TRUE(settings.kernel.onAccess);
  EXPECT_TRUE(settings.kernel.onExec);
  EXPECT_EQ(settings.kernel.threads, 4u);
  EXPECT_EQ(settings.kernel.refusingVerdicts, (std::vector<std::uint32_t>{4}));
}

TEST(EmulatorSettings, ResolveTheScenarioRelativeToTheConfiguration) {
  std::string errors;
  ExpectNextToTheConfiguration(ReadSettings("[emulator]\nscenario = 'all.toml'\n", errors).scenarioFile, "all.toml");
  EXPECT_EQ(errors, "");
}

TEST(EmulatorSettings, ReportEveryErrorWithItsPosition) {
  std::string errors;
  ReadSettings(R"([emulator]
source = "kernel"
deadline_ms = 0
surprise = 1
[emulator.faults]
version_reply = "long"
fail_send = { command = 2, nth = 0 }
[emulator.kernel]
events = ["open", "close"]
threads = 0
refusing_verdicts = [9]
)",
               errors);
  for (const char* place : {":2:", ":3:", ":4:", ":6:", ":7:", ":9:", ":10:", ":11:"}) {
    EXPECT_NE(errors.find(std::string("host.toml") + place), std::string::npos) << place << "\n" << errors;
  }
  EXPECT_NE(errors.find("unknown event \"close\"; the events are open, access and exec"), std::string::npos) << errors;
  EXPECT_NE(errors.find("is not a command of the driver"), std::string::npos) << errors;
}

TEST(EmulatorSettings, RefuseAScenarioForKernelEventsAndAnEmptyEventList) {
  std::string errors;
  ReadSettings("[emulator]\nsource = 'fanotify'\nscenario = 'x.toml'\n[emulator.kernel]\nevents = []\n", errors);
  EXPECT_NE(errors.find("kernel events have no scenario"), std::string::npos) << errors;
  EXPECT_NE(errors.find("names no event"), std::string::npos) << errors;
}

}  // namespace
}  // namespace fenlux::testing
