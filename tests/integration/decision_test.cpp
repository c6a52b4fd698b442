// What a run shows of its decisions: the decision log, the hits of rules, and explanations.
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <boost/filesystem/operations.hpp>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "tests/integration/host_process.h"
#include "tests/integration/kernel_events_missing.h"

namespace fenlux::testing {
namespace {

constexpr char kDecisionRules[] =
    "[[judging.rules]]\nname = 'no secrets'\npath = '*.secret'\ndecision = 3\n"
    "[[judging.rules]]\npath = '/never/*'\ndecision = 4\n";

// Events of a process that cannot exist, because its id is too large.
std::string Scenario(int refused, int allowed) {
  return "[[steps]]\nawait_request = 24\nlimit_ms = 240000\n"
         "[[steps]]\nnotify = 4097\npid = 4194999\npath = '/srv/a.secret'\ncount = " +
         std::to_string(refused) +
         "\n[[steps]]\nnotify = 4098\npath = '/srv/plain'\ncount = " + std::to_string(allowed) + "\n";
}

std::vector<std::string> LinesWith(const std::string& text, const std::string& part) {
  std::vector<std::string> found;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    if (Contains(line, part)) found.push_back(line);
  }
  return found;
}

// The records of a log in JSON.
std::vector<std::string> Records(const std::string& log) { return LinesWith(log, "\"decision\":{"); }

TEST(DecisionLog, HasALineForEveryRefusedEvent) {
  const HostSetup setup;
  setup.WriteHost("stop_at_end = true\n" + std::string(kDecisionRules), Scenario(1, 1));
  const Outcome outcome = setup.Run(RunArguments(setup));
  EXPECT_EQ(outcome.code, 0) << outcome.err;
  const std::vector<std::string> lines = LinesWith(outcome.err, "[4194999]");
  ASSERT_EQ(lines.size(), 1U) << outcome.err;
  const std::regex line(
      "refused \\?\\[4194999\\] access /srv/a\\.secret by rule \"no secrets\" \\(host\\.toml:3\\), decision 3, verdict "
      "4, "
      "\\d+ us$");
  EXPECT_TRUE(std::regex_search(lines[0], line)) << lines[0];
  EXPECT_FALSE(Contains(outcome.err, "/srv/plain"));
}

TEST(DecisionLog, ContainsTheEventsThatTheSettingSelects) {
  for (const auto& [setting, count] : {std::pair("off", 0U), std::pair("refused", 2U), std::pair("all", 5U)}) {
    const HostSetup setup;
    setup.WriteHost("stop_at_end = true\n[judging]\nlog = '" + std::string(setting) + "'\n" + kDecisionRules,
                    Scenario(2, 3));
    const Outcome outcome = setup.Run(RunArguments(setup, {"--json"}));
    EXPECT_EQ(outcome.code, 0) << outcome.err;
    EXPECT_EQ(Records(outcome.err).size(), count) << setting << '\n' << outcome.err;
    EXPECT_EQ(JsonValue(outcome.out, "summary.decision_log.log"), setting);
    EXPECT_EQ(JsonValue(outcome.out, "summary.decision_log.records"), std::to_string(count));
    EXPECT_EQ(JsonValue(outcome.out, "summary.decision_log.written"), std::to_string(count));
    const std::string hits = R"x("rules":{"1 \"no secrets\" (host.toml:5)":2,"2 (host.toml:9)":0,"default":3})x";
    EXPECT_TRUE(Contains(outcome.out, hits)) << outcome.out;
  }
}

TEST(DecisionLog, WritesTheFactsAsJson) {
  const HostSetup setup;
  setup.WriteHost("stop_at_end = true\n" + std::string(kDecisionRules), Scenario(1, 1));
  const Outcome outcome = setup.Run(RunArguments(setup, {"--json"}));
  const std::vector<std::string> records = Records(outcome.err);
  ASSERT_EQ(records.size(), 1U) << outcome.err;
  const std::vector<std::pair<std::string, std::string>> facts{
      {"result", "refused"},     {"pid", "4194999"},   {"code", "4097"},
      {"path", "/srv/a.secret"}, {"event", "access"},  {"rule.name", "no secrets"},
      {"rule.number", "1"},      {"rule.line", "3"},   {"decision", "3"},
      {"verdict", "4"},          {"enforced", "true"}, {"cause", ""}};
  for (const auto& [name, value] : facts) EXPECT_EQ(JsonValue(records[0], "decision." + name), value) << name;
  EXPECT_GT(std::stod(JsonValue(records[0], "decision.latency_us")), 0);
}

TEST(DecisionLog, LimitsTheConsoleButNotTheFile) {
  const HostSetup setup;
  setup.WriteHost("stop_at_end = true\n[log]\nfile = 'host.log'\n" + std::string(kDecisionRules), Scenario(300, 1));
  const Outcome outcome = setup.Run(RunArguments(setup));
  EXPECT_EQ(outcome.code, 0) << outcome.err;
  EXPECT_EQ(LinesWith(outcome.err, "refused ?[4194999]").size(), 10U) << outcome.err;
  EXPECT_EQ(
      LinesWith(outcome.err, "290 more by rule \"no secrets\" (host.toml:5) in the last 10 s, not shown here").size(),
      1U)
      << outcome.err;
  const Outcome file = HostProcess(setup, "cat", {(setup.Path() / "host.log").string()}).Wait();
  EXPECT_EQ(LinesWith(file.out, "refused ?[4194999]").size(), 300U);
  EXPECT_FALSE(Contains(file.out, "not shown here"));
  EXPECT_TRUE(LinesWith(outcome.out, "not_on_console  290").size() == 1) << outcome.out;
}

TEST(Enforcement, WhenOffNothingIsRefusedAndWouldBeRefusalsAreCounted) {
  const HostSetup setup;
  setup.WriteHost("stop_at_end = true\n[judging]\nenforce = false\n" + std::string(kDecisionRules), Scenario(2, 1));
  const Outcome outcome = setup.Run(RunArguments(setup, {"--json"}));
  EXPECT_EQ(outcome.code, 0) << outcome.err;
  const std::vector<std::string> records = Records(outcome.err);
  ASSERT_EQ(records.size(), 2U) << outcome.err;
  EXPECT_EQ(JsonValue(records[0], "decision.result"), "would refuse");
  EXPECT_EQ(JsonValue(records[0], "decision.enforced"), "false");
  EXPECT_EQ(JsonValue(records[0], "decision.decision"), "3");
  EXPECT_EQ(JsonValue(records[0], "decision.verdict"), "3");
  EXPECT_EQ(JsonValue(outcome.out, "summary.not_enforced"), "2");
  EXPECT_EQ(JsonValue(outcome.out, "summary.enforced"), "false");
  EXPECT_EQ(JsonValue(outcome.out, "summary.verdicts.4"), "(none)");
}

TEST(Enforcement, CanBeSwitchedWhileTheHostRuns) {
  if (const std::string missing = KernelEventsMissing(); !missing.empty()) GTEST_SKIP() << missing;
  const HostSetup setup;
  const std::string directory = setup.Directory("watched");
  const std::string secret = setup.Write("watched/diary.secret", "words\n");
  const std::string rest = "[emulator]\nsource = 'fanotify'\ndeadline_ms = 300000\n[policy]\ndirectories = ['" +
                           directory + "']\n" + kDecisionRules;
  const auto reads = [&] { return HostProcess(setup, "cat", {secret}).Wait().code == 0; };
  setup.WriteHost(rest);
  HostProcess host(setup, RunArguments(setup, {"--json"}));
  ASSERT_TRUE(Eventually([&] { return !reads(); })) << host.Err();
  setup.WriteHost("[judging]\nenforce = false\n" + rest);
  EXPECT_EQ(setup.Control({"reload"}).code, 0);
  EXPECT_TRUE(reads());
  EXPECT_TRUE(host.WaitForError("\"would refuse\""));
  EXPECT_EQ(JsonValue(setup.ControlJson({"rules"}), "enforced"), "false");
  setup.WriteHost(rest);
  EXPECT_EQ(setup.Control({"reload"}).code, 0);
  EXPECT_FALSE(reads());
  EXPECT_EQ(host.Stop().code, 0);
}

// The file's name has a line feed, an escape sequence, and the bytes of a lone surrogate.
TEST(DecisionLog, EscapesFileNames) {
  if (const std::string missing = KernelEventsMissing(); !missing.empty()) GTEST_SKIP() << missing;
  for (const bool json : {false, true}) {
    const HostSetup setup;
    const std::string directory = setup.Directory("watched");
    const std::string secret = setup.Write("watched/a\nb\x1b[31m\xed\xa0\x80.secret", "words\n");
    setup.WriteHost("[emulator]\nsource = 'fanotify'\ndeadline_ms = 300000\n[policy]\ndirectories = ['" + directory +
                    "']\n" + kDecisionRules);
    HostProcess host(setup, RunArguments(setup, json ? Arguments{"--json"} : Arguments{}));
    ASSERT_TRUE(Eventually([&] { return HostProcess(setup, "cat", {secret}).Wait().code != 0; })) << host.Err();
    const Outcome outcome = host.Stop();
    EXPECT_EQ(outcome.code, 0) << outcome.err;
    const std::string name = json ? "/watched/a\\nb\\u001b[31m" : "/watched/a\\nb\\x1b[31m";
    const std::vector<std::string> lines = LinesWith(outcome.err, name);
    ASSERT_EQ(lines.size(), 1U) << outcome.err;
    EXPECT_TRUE(Contains(lines[0], "refused")) << lines[0];
    EXPECT_TRUE(Contains(lines[0], "\xef\xbf\xbd")) << lines[0];
    if (json) {
      EXPECT_EQ(JsonValue(lines[0], "decision.operation"), "open");
      EXPECT_TRUE(Contains(JsonValue(lines[0], "decision.program"), "/cat")) << lines[0];
    } else {
      EXPECT_TRUE(Contains(lines[0], "refused cat[")) << lines[0];
      EXPECT_TRUE(Contains(lines[0], "] open ")) << lines[0];
    }
    EXPECT_EQ(outcome.err.find('\x1b'), std::string::npos);
    EXPECT_EQ(outcome.err.find('\xed'), std::string::npos);
  }
}

TEST(DecisionLog, ContainsRefusalsWithoutAJudgement) {
  if (const std::string missing = KernelEventsMissing(); !missing.empty()) GTEST_SKIP() << missing;
  const HostSetup setup;
  const std::string directory = setup.Directory("watched");
  const std::string file = setup.Write("watched/file", "words\n");
  const auto reads = [&] { return HostProcess(setup, "cat", {file}).Wait().code == 0; };
  // Without the module's connection no event can be judged.
  const std::string host =
      "[module]\nenabled = false\n[emulator]\nsource = 'fanotify'\nunjudged = 'refuse'\n"
      "[emulator.kernel]\ndirectories = ['" +
      directory + "']\n";
  setup.WriteHost(host);
  HostProcess process(setup, RunArguments(setup));
  ASSERT_TRUE(Eventually([&] { return !reads(); })) << process.Err();
  EXPECT_TRUE(process.WaitForError("] open, not judged: no connection")) << process.Err();
  setup.WriteHost(host + "[judging]\nenforce = false\n");
  EXPECT_EQ(setup.Control({"reload"}).code, 0);
  EXPECT_TRUE(reads());
  EXPECT_TRUE(process.WaitForError("would refuse ?[")) << process.Err();
  process.Stop();
}

TEST(Rules, ShowHitsInOrderAndTheDefaultAtTheEnd) {
  const HostSetup setup;
  setup.WriteHost(kDecisionRules, Scenario(2, 3));
  HostProcess host(setup, RunArguments(setup));
  ASSERT_TRUE(host.WaitForError("scenario finished")) << host.Err();
  const std::string json = setup.ControlJson({"rules"});
  EXPECT_EQ(JsonValue(json, "rules.0.name"), "no secrets") << json;
  EXPECT_EQ(JsonValue(json, "rules.0.hits"), "2");
  EXPECT_EQ(JsonValue(json, "rules.1.hits"), "0");
  EXPECT_EQ(JsonValue(json, "default.hits"), "3");
  const std::string text = setup.Control({"rules"}).out;
  EXPECT_EQ(LinesWith(text, "no secrets").size(), 1U) << text;
  EXPECT_TRUE(Contains(text, "default                2           3  ")) << text;
  EXPECT_EQ(setup.Control({"reload"}).code, 0);
  EXPECT_EQ(JsonValue(setup.ControlJson({"rules"}), "rules.0.hits"), "2") << "the rules are the same";
  EXPECT_EQ(host.Stop().code, 0);
}

TEST(Explain, ReadsOnlyTheRulesAndNeedsNoHost) {
  const HostSetup setup;
  setup.WriteHost("[policy]\ndirectories = ['${FENLUX_NO_SUCH_VARIABLE}']\n[module]\ntpyo = 1\n" +
                  std::string(kDecisionRules));
  const std::string config = (setup.Path() / "host.toml").string();
  const Outcome refused = setup.Run({"explain", "--config", config, "--path", "/srv/a.secret"});
  EXPECT_EQ(refused.code, 0) << refused.err;
  EXPECT_EQ(refused.out,
            "refused: /srv/a.secret (code 4097), by a program that no rule names\n"
            "decided by rule \"no secrets\" (host.toml:6), decision 3\n"
            "  rule \"no secrets\" (host.toml:6) matches\n");
  const Outcome allowed = setup.Run({"explain", "--config", config, "--path", "/srv/plain", "--json"});
  EXPECT_EQ(allowed.code, 0) << allowed.err;
  EXPECT_EQ(JsonValue(allowed.out, "result"), "allowed");
  EXPECT_EQ(JsonValue(allowed.out, "decided_by"), "the default");
  EXPECT_EQ(JsonValue(allowed.out, "rules.0.reasons.0"), "its path *.secret does not match /srv/plain");
  EXPECT_EQ(setup.Run({"explain", "--config", config}).code, 2);
  EXPECT_EQ(setup.Run({"explain", "--config", config, "--path", "/a", "--code", "4115"}).code, 2);
  const std::string broken = setup.Write("broken.toml", "[judging]\ndefault_decision = 9\n");
  const Outcome wrong = setup.Run({"explain", "--config", broken, "--path", "/a"});
  EXPECT_EQ(wrong.code, 2);
  EXPECT_EQ(wrong.err, broken + ":2:20: judging.default_decision: must be from 1 to 7, not 9\n");
}

TEST(Explain, LooksUpTheProgramOfAProcess) {
  const HostSetup setup;
  setup.WriteHost("[[judging.rules]]\nprocess = 'fenlux_integration_tests'\ndecision = 3\n");
  const std::string config = (setup.Path() / "host.toml").string();
  const Outcome outcome =
      setup.Run({"explain", "--config", config, "--path", "/a", "--pid", std::to_string(::getpid()), "--json"});
  EXPECT_EQ(JsonValue(outcome.out, "result"), "refused") << outcome.err;
  EXPECT_TRUE(Contains(JsonValue(outcome.out, "program"), "/fenlux_integration_tests"));
}

TEST(Explain, AsksARunningHost) {
  const HostSetup setup;
  setup.WriteHost(kDecisionRules, Scenario(1, 1));
  HostProcess host(setup, RunArguments(setup));
  ASSERT_TRUE(host.WaitForError("scenario finished")) << host.Err();
  setup.WriteHost("");  // the host has the old rules
  const std::string json = setup.ControlJson({"explain", "--path", "/srv/a.secret", "--process", "/usr/bin/cat"});
  EXPECT_EQ(JsonValue(json, "result"), "refused") << json;
  EXPECT_EQ(JsonValue(json, "program"), "/usr/bin/cat");
  const Outcome refusal = setup.Control({"explain", "--path", "/a", "--event", "opne"});
  EXPECT_EQ(refusal.code, 1);
  EXPECT_EQ(refusal.err,
            "event \"opne\" is not one of access, endpoint, open, remote, unanswered; did you mean \"open\"?\n");
  EXPECT_EQ(host.Stop().code, 0);
}

}  // namespace
}  // namespace fenlux::testing
