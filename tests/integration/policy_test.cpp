// The driver gets the policy: at the start, after a dropped connection, and after changes while the host runs.
#include <gtest/gtest.h>
#include <signal.h>

#include "tests/integration/host_process.h"

namespace fenlux::testing {
namespace {

std::string Policy(const std::vector<std::string>& directories) {
  std::string text = "[policy]\ndirectories = [";
  for (const std::string& directory : directories) text += "'" + directory + "', ";
  return text + "]\n";
}

std::string Committed(const Scene& scene) {
  return JsonValue(scene.ControlJson({"driver"}), "monitored_type2.committed");
}

TEST(Policy, ReachesTheDriverAtTheStartWithoutMissingPathsAndFiles) {
  const Scene scene;
  const std::string directory = scene.Directory("watched");
  const std::string file = scene.Write("file", "");
  scene.WriteHost("stop_at_end = true\n" + Policy({directory, file, "not-there"}) +
                      "[module]\nconfig_block = 'block'\n[system_images]\n'system32\\csrss.exe' = '/proc/self/exe'\n",
                  "[[steps]]\nawait_request = 24\nlimit_ms = 60000\n");
  const Outcome outcome = scene.Run(RunArguments(scene, {"--json"}));
  EXPECT_EQ(outcome.code, 0) << outcome.err;
  EXPECT_EQ(JsonValue(outcome.out, "summary.driver_was_told.monitored_type2"), "1");
  EXPECT_EQ(JsonValue(outcome.out, "summary.driver_was_told.config_block_bytes"), "5");
  EXPECT_EQ(JsonValue(outcome.out, "summary.driver_was_told.system_processes"), "1");
  EXPECT_EQ(JsonValue(outcome.out, "summary.driver_was_told.dumps"), "1");
  EXPECT_TRUE(Contains(outcome.err,
                       "[dci,trc][Skip]Monitor object NOT exist. [obj]=" + scene.Path().string() + "/not-there\""));
  EXPECT_TRUE(
      Contains(outcome.err, "[dci,trc][Skip]Object is NOT directory(Only accept monitor dir).[Object]=" + file + "\""));
}

TEST(Policy, IsAppliedAgainAfterADroppedConnection) {
  const Scene scene;
  scene.WriteHost("stop_at_end = true\n" + Policy({scene.Directory("watched")}),
                  "[[steps]]\nawait_request = 24\nlimit_ms = 60000\n"
                  "[[steps]]\ndrop = true\n"
                  "[[steps]]\nawait_request = 24\nlimit_ms = 60000\n");
  const Outcome outcome = scene.Run(RunArguments(scene, {"--json"}));
  EXPECT_EQ(outcome.code, 0) << outcome.err;
  EXPECT_EQ(JsonValue(outcome.out, "summary.connections.opened"), "2");
  EXPECT_EQ(JsonValue(outcome.out, "summary.driver_was_told.monitored_type2"), "1");
}

TEST(Policy, IsReloadedOnSighup) {
  const Scene scene;
  const std::string first = scene.Directory("first");
  const std::string second = scene.Directory("second");
  scene.WriteHost(Policy({first}));
  HostProcess host(scene, RunArguments(scene));
  ASSERT_TRUE(host.WaitForError("[Add Monitor OK!][obj path]=" + first));
  scene.WriteHost(Policy({first, second}));
  host.Signal(SIGHUP);
  EXPECT_TRUE(host.WaitForError("[host] configuration reloaded"));
  EXPECT_TRUE(host.WaitForError("[Add Monitor OK!][obj path]=" + second));
  EXPECT_TRUE(Eventually([&] { return Contains(Committed(scene), second); }));
  scene.WriteHost(Policy({second}));
  EXPECT_EQ(scene.Control({"reload"}).code, 0);
  EXPECT_TRUE(Eventually([&] { return !Contains(Committed(scene), first); })) << Committed(scene);
  EXPECT_EQ(host.Stop().code, 0);
}

TEST(Policy, ABadFileIsReportedAndNotUsed) {
  const Scene scene;
  const std::string first = scene.Directory("first");
  scene.WriteHost(Policy({first}));
  HostProcess host(scene, RunArguments(scene));
  ASSERT_TRUE(host.WaitForError("[Add Monitor OK!][obj path]=" + first));
  const std::string file = scene.Write("host.toml", "[policy]\ndirectories = [1]\n[judging]\ndefault = 2\n");
  host.Signal(SIGHUP);
  const std::string prefix = "[host] configuration not reloaded: ";
  EXPECT_TRUE(host.WaitForError(prefix + file + ":2:16: policy.directories[0]: must be a string\n"));
  EXPECT_TRUE(host.WaitForError(prefix + file + ":4:1: judging.default: is not a known key\n"));
  const Outcome reload = scene.Control({"reload"});
  EXPECT_EQ(reload.code, 1);
  EXPECT_TRUE(Contains(reload.err, file + ":4:1: judging.default: is not a known key\n")) << reload.err;
  EXPECT_EQ(scene.Control({"policy-changed"}).code, 0);
  EXPECT_TRUE(host.WaitForError("[Add Monitor OK!][obj path]=" + first, 2));
  EXPECT_EQ(JsonValue(scene.ControlJson({"status"}), "refused_reloads"), "2");
  EXPECT_EQ(host.Stop().code, 0);
}

TEST(Policy, ChangedRulesApplyToTheNextEvents) {
  const Scene scene;
  const std::string scenario =
      "[[steps]]\nnotify = 4098\nexpect_verdict = 3\n"
      "[[steps]]\nawait_request = 9\nlimit_ms = 60000\n"
      "[[steps]]\nnotify = 4098\nexpect_verdict = 5\n";
  scene.WriteHost("", scenario);
  HostProcess host(scene, RunArguments(scene));
  ASSERT_TRUE(host.WaitForError("Driver Interact Ready."));
  ASSERT_TRUE(Eventually([&] { return JsonValue(scene.ControlJson({"status"}), "delivered") == "1"; }));
  scene.WriteHost("[judging]\ndefault_decision = 4\n", scenario);
  EXPECT_EQ(scene.Control({"reload"}).code, 0);
  EXPECT_EQ(scene.Control({"grhara", "on"}).code, 0);
  EXPECT_TRUE(host.WaitForError("scenario finished"));
  EXPECT_EQ(host.Stop().code, 0);
}

TEST(Policy, WarnsAboutSettingsThatNeedARestart) {
  const Scene scene;
  scene.WriteHost("");
  HostProcess host(scene, RunArguments(scene));
  ASSERT_TRUE(host.WaitForError("Driver Interact Ready."));
  scene.WriteHost("[module]\nport_value = 99\n");
  host.Signal(SIGHUP);
  EXPECT_TRUE(host.WaitForError("some changed settings take effect only after a restart"));
  EXPECT_NE(JsonValue(scene.ControlJson({"port-value"}), "port_value"), "99");
  EXPECT_EQ(host.Stop().code, 0);
}

TEST(Policy, RegistersTenThousandDirectoriesInOneBatch) {
  const Scene scene;
  std::vector<std::string> directories;
  for (int number = 0; number < 10'000; ++number) {
    directories.push_back(scene.Directory("many/" + std::to_string(number)));
  }
  scene.WriteHost("stop_at_end = true\n[log]\nconsole = 'warning'\n" + Policy(directories),
                  "[[steps]]\nawait_request = 24\nlimit_ms = 120000\n");
  const Outcome outcome = scene.Run(RunArguments(scene, {"--json"}));
  EXPECT_EQ(outcome.code, 0) << outcome.err;
  EXPECT_EQ(JsonValue(outcome.out, "summary.driver_was_told.monitored_type2"), "10000");
}

}  // namespace
}  // namespace fenlux::testing
