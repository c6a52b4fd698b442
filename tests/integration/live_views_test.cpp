// What a running host shows of itself: `ctl status`, `ctl health` and `ctl metrics`.
#include <gtest/gtest.h>

#include "tests/integration/host_process.h"

namespace fenlux::testing {
namespace {

constexpr char kTraffic[] =
    "[[steps]]\nnotify = 4098\npath = '/srv/a.txt'\ncount = 20\n"
    "[[steps]]\nnotify = 4098\npath = '/srv/a.secret'\ncount = 5\nexpect_verdict = 4\n";

class LiveViews : public ::testing::Test {
 protected:
  void Start(const std::string& config, const std::string& scenario = "") {
    setup.WriteHost(config, scenario);
    host = std::make_unique<HostProcess>(setup, RunArguments(setup));
    ASSERT_TRUE(host->WaitForError("[emulator] "));
  }
  std::string Status(const std::string& path) { return JsonValue(setup.ControlJson({"status"}), path); }

  HostSetup setup;
  std::unique_ptr<HostProcess> host;
};

TEST_F(LiveViews, StatusNamesVersionsProcessConnectionPolicyRulesAndQueues) {
  const std::string directory = setup.Directory("watched");
  Start("[policy]\ndirectories = ['" + directory + "', '/no/such/directory']\n");
  ASSERT_TRUE(host->WaitForError("[Skip]Monitor object NOT exist."));
  ASSERT_TRUE(Eventually([&] { return Contains(Status("policy"), directory + ": watched"); }));
  const std::string json = setup.ControlJson({"status"});
  EXPECT_EQ(JsonValue(json, "pid"), std::to_string(host->Id()));
  EXPECT_EQ(JsonValue(json, "module_version"), "19072701");
  EXPECT_TRUE(Contains(JsonValue(json, "host_version"), "."));
  EXPECT_EQ(JsonValue(json, "connection.connected"), "true");
  EXPECT_EQ(JsonValue(json, "connection.opened"), "1");
  EXPECT_EQ(JsonValue(json, "connection.since").size(), std::string("2026-01-31T23:59:59Z").size());
  EXPECT_EQ(JsonValue(json, "policy"),
            "[\"" + directory + ": watched\",\"/no/such/directory: not watched: No such file or directory\"]");
  EXPECT_EQ(JsonValue(json, "rules.file"), (setup.Path() / "host.toml").string());
  EXPECT_EQ(JsonValue(json, "queues.log_lines_capacity"), "8192");
  EXPECT_EQ(JsonValue(json, "queues.log_lines_lost"), "0");
}

TEST_F(LiveViews, StatusShowsTheLatencyOfTheLastSecondsAndMinutes) {
  Start(kSecretsRule, kTraffic);
  ASSERT_TRUE(host->WaitForError("[emulator] scenario finished"));
  const std::string json = setup.ControlJson({"status"});
  for (const std::string period : {"latency.last_minute.", "latency.last_10_minutes."}) {
    EXPECT_EQ(JsonValue(json, period + "count"), "25") << json;
    EXPECT_NE(JsonValue(json, period + "p50_us"), "0.0");
  }
  const Outcome text = setup.Control({"status"});
  EXPECT_TRUE(Contains(text.out, "  last_10_seconds\n    count   ")) << text.out;
}

TEST_F(LiveViews, StatusAndHealthSayWhyTheLastConnectionEnded) {
  Start("");
  ASSERT_TRUE(host->WaitForError("Driver Interact Ready."));
  Outcome health;
  ASSERT_TRUE(Eventually([&] { return (health = setup.Control({"health"})).code == 0; })) << health.out;
  EXPECT_EQ(health.out, "healthy\n");
  ASSERT_EQ(setup.Control({"stop"}).code, 0);
  ASSERT_TRUE(host->WaitForError("Driver interact exit."));
  health = setup.Control({"health"});
  EXPECT_EQ(health.code, 6) << health.out;
  EXPECT_TRUE(Contains(health.out, "degraded: no connection: ")) << health.out;
  const std::string reason = Status("connection.last_end_reason");
  EXPECT_NE(reason, "(none)");
  EXPECT_TRUE(Contains(health.out, reason)) << health.out;
}

TEST_F(LiveViews, HealthIsDegradedByARefusedReloadUntilOneSucceeds) {
  Start("");
  ASSERT_TRUE(Eventually([&] { return setup.Control({"health"}).code == 0; }));
  setup.Write("host.toml", "nonsense = 1\n");
  EXPECT_EQ(setup.Control({"reload"}).code, 1);
  const Outcome health = setup.Control({"health", "--json"});
  EXPECT_EQ(health.code, 6);
  EXPECT_EQ(health.out, "{\"health\":\"degraded\",\"problems\":[\"the last reload was refused\"]}\n");
}

TEST_F(LiveViews, HealthWithoutARunningHostIsOneLineAndExitCodeSeven) {
  const Outcome text = setup.Control({"health"});
  EXPECT_EQ(text.code, 7);
  EXPECT_TRUE(Contains(text.out, "not reachable: ")) << text.out;
  EXPECT_EQ(CountOf(text.out, "\n"), 1u);
  EXPECT_EQ(text.err, "");
  const Outcome json = setup.Control({"health", "--json"});
  EXPECT_EQ(json.code, 7);
  EXPECT_EQ(JsonValue(json.out, "health"), "not reachable");
}

TEST_F(LiveViews, MetricsCountTheTraffic) {
  Start(kSecretsRule, kTraffic);
  ASSERT_TRUE(host->WaitForError("[emulator] scenario finished"));
  const std::string text = setup.Control({"metrics"}).out;
  EXPECT_TRUE(Contains(text, "fenlux_notifications_total{code=\"4098\"} 25\n")) << text;
  EXPECT_TRUE(Contains(text, "fenlux_verdicts_total{code=\"4098\",verdict=\"4\"} 5\n")) << text;
  EXPECT_TRUE(Contains(text, "fenlux_latency_seconds_count 25\n")) << text;
  EXPECT_TRUE(Contains(text, "fenlux_latency_seconds_bucket{le=\"+Inf\"} 25\n")) << text;
}

TEST_F(LiveViews, APortInUseIsAnErrorWithTheReason) {
  Start("[metrics]\nlisten = '127.0.0.1:0'\n");
  ASSERT_TRUE(host->WaitForError("[host] metrics at http://127.0.0.1:"));
  const std::string log = host->Err();
  const std::size_t begin = log.find("http://127.0.0.1:") + std::string("http://").size();
  const std::string place = log.substr(begin, log.find("/metrics", begin) - begin);
  const HostSetup other;
  other.WriteHost("[metrics]\nlisten = '" + place + "'\n");
  const Outcome outcome = other.Run(RunArguments(other, {"--duration", "5"}));
  EXPECT_EQ(outcome.code, 2);
  EXPECT_TRUE(Contains(outcome.err, "cannot serve metrics on 127.0.0.1 port ")) << outcome.err;
  EXPECT_TRUE(Contains(outcome.err, "Address already in use")) << outcome.err;
}

}  // namespace
}  // namespace fenlux::testing
