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

std::string Committed(const HostSetup& setup) {
  return JsonValue(setup.ControlJson({"driver"}), "monitored_type2.committed");
}

TEST(Policy, ReachesTheDriverAtTheStartWithoutMissingPathsAndFiles) {
  const HostSetup setup;
  const std::string directory = setup.Directory("watched");
  const std::string file = setup.Write("file", "");
  setup.WriteHost("stop_at_end = true\n" + Policy({directory, file, "not-there"}) +
                      "[module]\nconfig_block = 'block'\n[system_images]\n'system32\\csrss.exe' = '/proc/self/exe'\n",
                  kAwaitOpening);
  const Outcome outcome = setup.Run(RunArguments(setup, {"--json"}));
  EXPECT_EQ(outcome.code, 0) << outcome.err;
  EXPECT_EQ(JsonValue(outcome.out, "summary.driver_was_told.monitored_type2"), "1");
  EXPECT_EQ(JsonValue(outcome.out, "summary.driver_was_told.config_block_bytes"), "5");
  EXPECT_EQ(JsonValue(outcome.out, "summary.driver_was_told.system_processes"), "1");
  EXPECT_EQ(JsonValue(outcome.out, "summary.driver_was_told.dumps"), "1");
  EXPECT_TRUE(Contains(outcome.err,
                       "[dci,trc][Skip]Monitor object NOT exist. [obj]=" + setup.Path().string() + "/not-there\""));
  EXPECT_TRUE(
      Contains(outcome.err, "[dci,trc][Skip]Object is NOT directory(Only accept monitor dir).[Object]=" + file + "\""));
}

TEST(Policy, IsAppliedAgainAfterADroppedConnection) {
  const HostSetup setup;
  setup.WriteHost("stop_at_end = true\n" + Policy({setup.Directory("watched")}),
                  "[[steps]]\nawait_request = 24\nlimit_ms = 240000\n"
                  "[[steps]]\ndrop = true\n"
                  "[[steps]]\nawait_request = 24\nlimit_ms = 240000\n");
  const Outcome outcome = setup.Run(RunArguments(setup, {"--json"}));
  EXPECT_EQ(outcome.code, 0) << outcome.err;
  EXPECT_EQ(JsonValue(outcome.out, "summary.connections.opened"), "2");
  EXPECT_EQ(JsonValue(outcome.out, "summary.driver_was_told.monitored_type2"), "1");
}

TEST(Policy, IsReloadedOnSighup) {
  const HostSetup setup;
  const std::string first = setup.Directory("first");
  const std::string second = setup.Directory("second");
  setup.WriteHost(Policy({first}));
  HostProcess host(setup, RunArguments(setup));
  ASSERT_TRUE(host.WaitForError("[Add Monitor OK!][obj path]=" + first));
  setup.WriteHost(Policy({first, second}));
  host.Signal(SIGHUP);
  EXPECT_TRUE(host.WaitForError("[host] configuration reloaded"));
  EXPECT_TRUE(host.WaitForError("[Add Monitor OK!][obj path]=" + second));
  EXPECT_TRUE(Eventually([&] { return Contains(Committed(setup), second); }));
  setup.WriteHost(Policy({second}));
  EXPECT_EQ(setup.Control({"reload"}).code, 0);
  EXPECT_TRUE(Eventually([&] { return !Contains(Committed(setup), first); })) << Committed(setup);
  EXPECT_EQ(host.Stop().code, 0);
}

TEST(Policy, ABadFileIsReportedAndNotUsed) {
  const HostSetup setup;
  const std::string first = setup.Directory("first");
  setup.WriteHost(Policy({first}));
  HostProcess host(setup, RunArguments(setup));
  ASSERT_TRUE(host.WaitForError("[Add Monitor OK!][obj path]=" + first));
  const std::string file = setup.Write("host.toml", "[policy]\ndirectories = [1]\n[judging]\ndefault = 2\n");
  host.Signal(SIGHUP);
  const std::string prefix = "[host] configuration not reloaded: ";
  EXPECT_TRUE(host.WaitForError(prefix + file + ":2:16: policy.directories[0]: must be a string\n"));
  EXPECT_TRUE(host.WaitForError(prefix + file +
                                ":4:1: judging.default: is not a known key; did you mean \"default_decision\"?\n"));
  const Outcome reload = setup.Control({"reload"});
  EXPECT_EQ(reload.code, 1);
  EXPECT_TRUE(
      Contains(reload.err, file + ":4:1: judging.default: is not a known key; did you mean \"default_decision\"?\n"))
      << reload.err;
  EXPECT_TRUE(
      NotifyPolicyUntil(setup, [&] { return CountOf(host.Err(), "[Add Monitor OK!][obj path]=" + first) >= 2; }));
  EXPECT_EQ(JsonValue(setup.ControlJson({"status"}), "refused_reloads"), "2");
  EXPECT_EQ(host.Stop().code, 0);
}

TEST(Policy, ChangedRulesApplyToTheNextEvents) {
  const HostSetup setup;
  const std::string scenario =
      "[[steps]]\nnotify = 4098\nexpect_verdict = 3\n"
      "[[steps]]\nawait_request = 9\nlimit_ms = 240000\n"
      "[[steps]]\nnotify = 4098\nexpect_verdict = 5\n";
  setup.WriteHost("", scenario);
  HostProcess host(setup, RunArguments(setup));
  ASSERT_TRUE(host.WaitForError("Driver Interact Ready."));
  ASSERT_TRUE(Eventually([&] { return JsonValue(setup.ControlJson({"summary"}), "notifications.answered") == "1"; }));
  setup.WriteHost("[judging]\ndefault_decision = 4\n", scenario);
  EXPECT_EQ(setup.Control({"reload"}).code, 0);
  EXPECT_EQ(setup.Control({"grhara", "on"}).code, 0);
  EXPECT_TRUE(host.WaitForError("scenario finished"));
  EXPECT_EQ(host.Stop().code, 0);
}

TEST(Policy, WarnsAboutSettingsThatNeedARestart) {
  const HostSetup setup;
  setup.WriteHost("");
  HostProcess host(setup, RunArguments(setup));
  ASSERT_TRUE(host.WaitForError("Driver Interact Ready."));
  setup.WriteHost("[module]\nport_value = 99\n");
  host.Signal(SIGHUP);
  EXPECT_TRUE(host.WaitForError(
      "[host] some changed settings take effect only after a restart: module.port_value (host.toml:3)\n"));
  EXPECT_EQ(setup.Control({"reload"}).out, "restart_needed_for\n  module.port_value (host.toml:3)\n");
  EXPECT_NE(JsonValue(setup.ControlJson({"port-value"}), "port_value"), "99");
  EXPECT_EQ(host.Stop().code, 0);
}

TEST(Policy, RegistersTenThousandDirectoriesInOneBatch) {
  const HostSetup setup;
  std::vector<std::string> directories;
  for (int number = 0; number < 10'000; ++number) {
    directories.push_back(setup.Directory("many/" + std::to_string(number)));
  }
  setup.WriteHost("stop_at_end = true\n[log]\nconsole = 'warning'\n" + Policy(directories),
                  "[[steps]]\nawait_request = 24\nlimit_ms = 240000\n");
  const Outcome outcome = setup.Run(RunArguments(setup, {"--json"}));
  EXPECT_EQ(outcome.code, 0) << outcome.err;
  EXPECT_EQ(JsonValue(outcome.out, "summary.driver_was_told.monitored_type2"), "10000");
}

}  // namespace
}  // namespace fenlux::testing
