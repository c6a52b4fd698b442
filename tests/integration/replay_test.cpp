// `fenlux-host replay`: recordings of the reference host, played to the module again.
#include <gmock/gmock.h>

#include <boost/filesystem/operations.hpp>
#include <fstream>
#include <iterator>

#include "tests/integration/host_process.h"

namespace fenlux::testing {
namespace {

using ::testing::HasSubstr;

const std::string kEvents = "threads = 4\n" + std::string(kAwaitOpening) +
                            "[[steps]]\nnotify = 4098\npath = '/a/x.secret'\nexpect_verdict = 4\n"
                            "[[steps]]\nnotify = 4099\npath = '/a/plain'\nexpect_verdict = 3\n"
                            "[[steps]]\nnotify = 4098\npath = '/a/y.traced'\nexpect_verdict = 6\n"
                            "[[steps]]\nnotify = 4097\ncount = 200\nthreads = 4\npath = '/a/many'\n"
                            "[[steps]]\nnotify = 4098\npath = '/a/locked'\noplock = 1\n"
                            "[[steps]]\nnotify = 4113\nexpect_verdict = 0\n";
const std::string kSettings = std::string(kSystemImage) +
                              "[module]\nconfig_block = 'a block'\n[spsp]\nflag1 = 1\nflag3 = 7\n"
                              "[policy]\ndirectories = ['watched', 'host.toml', 'not-there']\n"
                              "[[judging.rules]]\nname = 'secrets'\npath = '*.secret'\ndecision = 3\n"
                              "[[judging.rules]]\npath = '*.traced'\ndecision = 5\ncontext = 'a text'\n";

// The line of the totals.
std::string LastLine(const std::string& text) {
  const std::size_t end = text.find_last_not_of('\n');
  const std::size_t before = end == std::string::npos ? end : text.rfind('\n', end);
  return before == std::string::npos ? text : text.substr(before + 1);
}

class Replay : public ::testing::Test {
 protected:
  Replay() { setup.Directory("watched"); }

  std::string File(const std::string& name = "port.pcapng") const { return (setup.Path() / name).string(); }
  void Record(const std::string& settings = kSettings, const std::string& scenario = kEvents) const {
    setup.WriteHost("stop_at_end = true\n" + settings, scenario);
    const Outcome outcome = setup.Run(RunArguments(setup, {"--record", File()}));
    ASSERT_EQ(outcome.code, 0) << outcome.err;
  }
  Outcome Play(const Arguments& more = {}, const std::string& name = "port.pcapng") const {
    Arguments arguments{"replay", "--json", File(name)};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return setup.Run(arguments);
  }
  static void ExpectIdentical(const Outcome& outcome) {
    EXPECT_EQ(outcome.code, 0) << outcome.out << outcome.err;
    EXPECT_EQ(JsonValue(outcome.out, "replay.identical"), "true") << outcome.out;
    EXPECT_EQ(JsonValue(outcome.out, "replay.differences"), "0");
    EXPECT_EQ(outcome.err, "");
  }

  HostSetup setup;
};

TEST_F(Replay, ARecordedRunReplaysIdenticallyEveryTime) {
  Record();
  for (int round = 0; round < 3; ++round) {
    const Outcome outcome = Play();
    ExpectIdentical(outcome);
    EXPECT_EQ(JsonValue(outcome.out, "replay.notifications"), "205");
    // The four switches, the version, a process, a path, its commit, the dump, the block, and the commit of the stop.
    EXPECT_EQ(JsonValue(outcome.out, "replay.requests"), "8");
    EXPECT_EQ(JsonValue(outcome.out, "replay.request_contents_compared"), "true");
    EXPECT_EQ(JsonValue(outcome.out, "replay.connections"), "1");
  }
  ExpectIdentical(Play({"--speed", "1"}));
}

TEST_F(Replay, TheRecordedDirectoriesNeedNotExistHere) {
  Record();
  boost::filesystem::remove(setup.Path() / "watched");
  setup.Directory("not-there");
  ExpectIdentical(Play());
}

TEST_F(Replay, TheScriptedExampleReplaysIdentically) {
  const Outcome recorded = setup.Run({"run", "--config", std::string(FENLUX_EXAMPLES) + "/scripted.toml", "--socket",
                                      File("host.sock"), "--record", File()});
  ASSERT_EQ(recorded.code, 0) << recorded.err;
  const Outcome outcome = Play({"--speed", "max"});
  ExpectIdentical(outcome);
  EXPECT_EQ(JsonValue(outcome.out, "replay.connections"), "2");
}

// Recorded on another machine, whose paths and processes do not exist on this one.
TEST_F(Replay, ACaptureOfAnotherMachineReplaysIdentically) {
  const Outcome outcome = setup.Run({"replay", "--json", FENLUX_GOLDEN_RUN});
  ExpectIdentical(outcome);
  EXPECT_EQ(JsonValue(outcome.out, "replay.requests"), "8");
  EXPECT_EQ(JsonValue(outcome.out, "replay.notifications"), "26");
}

TEST_F(Replay, TheCallsOfTheHostAreRepeated) {
  setup.WriteHost(kSettings, kAwaitOpening);
  HostProcess host(setup, RunArguments(setup, {"--record", File()}));
  ASSERT_TRUE(host.WaitForError("scenario finished"));
  const std::string other = setup.Directory("other");
  setup.Write("items.toml", "[[items]]\nopaque_text = 'item'\nvalue = 9\n");
  for (const Arguments& operation :
       {Arguments{"grdto", "77"}, Arguments{"grsp", "3"}, Arguments{"grpm", "1"}, Arguments{"grhara", "off"},
        Arguments{"version"}, Arguments{"monitor", "add", "3", other}, Arguments{"monitor", "add", "3", File()},
        Arguments{"monitor", "send", "3"}, Arguments{"monitor", "clear", "3"},
        Arguments{"net-control", "apply", File("items.toml")}, Arguments{"net-control", "mode1"},
        Arguments{"register-process", "3", "4"}, Arguments{"send-config"}, Arguments{"debug-dump"}}) {
    EXPECT_EQ(setup.Control(operation).code, 0) << operation[0];
  }
  EXPECT_EQ(setup.Control({"grsp", "2"}).code, 1);
  ASSERT_TRUE(NotifyPolicyUntil(setup, [&] { return JsonValue(setup.ControlJson({"driver"}), "requests.24") == "3"; }));
  EXPECT_EQ(host.Stop().code, 0);
  const Outcome outcome = Play();
  ExpectIdentical(outcome);
  EXPECT_GT(std::stoi(JsonValue(outcome.out, "replay.requests")), 30);
}

TEST_F(Replay, ARecordingThatStartsLateIsReplayedFromItsStart) {
  setup.WriteHost(kSettings);
  HostProcess host(setup, RunArguments(setup));
  ASSERT_TRUE(host.WaitForError("[Add Monitor OK!]"));
  // The last requests of the two threads that open the connection.
  for (const char* const last : {"requests.20", "requests.24"}) {
    ASSERT_TRUE(Eventually([&] { return JsonValue(setup.ControlJson({"driver"}), last) == "1"; })) << last;
  }
  EXPECT_EQ(setup.Control({"record", "start", File()}).code, 0);
  EXPECT_EQ(setup.Control({"grdto", "78"}).code, 0);
  EXPECT_EQ(host.Stop().code, 0);
  const Outcome outcome = Play();
  ExpectIdentical(outcome);
  EXPECT_EQ(JsonValue(outcome.out, "replay.requests"), "2");
}

TEST_F(Replay, ACaptureMayContainOnlyNotifications) {
  Record("[capture]\nkinds = ['notifications']\n" + kSettings);
  const Outcome outcome = Play();
  ExpectIdentical(outcome);
  EXPECT_EQ(JsonValue(outcome.out, "replay.notifications"), "205");
  EXPECT_EQ(JsonValue(outcome.out, "replay.requests"), "0");
}

TEST_F(Replay, WithoutFactsOnlyTheFormOfRequestsIsChecked) {
  Record("[capture]\nkinds = ['notifications', 'requests']\n" + kSettings);
  const Outcome outcome = Play();
  ExpectIdentical(outcome);
  EXPECT_EQ(JsonValue(outcome.out, "replay.request_contents_compared"), "false");
  EXPECT_EQ(JsonValue(outcome.out, "replay.requests"), "8");
}

TEST_F(Replay, AnAlteredModuleIsCaught) {
  Record();
  setup.SetVariable("FENLUX_REAL_MODULE", FENLUX_MODULE);
  const Outcome outcome = Play({"--module", FENLUX_ALTERED_MODULE});
  EXPECT_EQ(outcome.code, 4) << outcome.out << outcome.err;
  EXPECT_EQ(JsonValue(LastLine(outcome.out), "replay.identical"), "false");
  EXPECT_EQ(JsonValue(LastLine(outcome.out), "replay.differences"), "2") << outcome.out;
  EXPECT_THAT(outcome.out, HasSubstr("{\"field\":\"verdict\",\"recorded\":\"3\",\"replayed\":\"2\"}"));
  EXPECT_THAT(outcome.out, HasSubstr("{\"field\":\"switch1\",\"recorded\":\"1\",\"replayed\":\"0\"}"));

  const Outcome text = setup.Run({"replay", "--module", FENLUX_ALTERED_MODULE, File()});
  EXPECT_EQ(text.code, 4);
  EXPECT_THAT(text.out, HasSubstr("a different reply\n  verdict      recorded 3, replayed 2\n  000000  recorded "));
  EXPECT_THAT(text.out, HasSubstr("identical"));
}

TEST_F(Replay, ARecordedMessageCanBeUsedAsATest) {
  // Exchange 9 is the first notification of the golden run, which a rule refused.
  const std::string step = std::string("[[steps]]\nfrom_capture = '") + FENLUX_GOLDEN_RUN + "'\nexchange = 9\n";
  const std::string await = "[[steps]]\nawait_request = 24\nlimit_ms = 240000\n";
  setup.WriteHost("stop_at_end = true\n" + kSettings,
                  await + step + "[[steps]]\nraw_hex = '00 01 02'\nexpect_verdict = 8\n");
  const Outcome same = setup.Run(RunArguments(setup, {"--json"}));
  EXPECT_EQ(same.code, 0) << same.out << same.err;
  EXPECT_EQ(JsonValue(same.out, "summary.notifications.delivered"), "2");
  setup.WriteHost("stop_at_end = true\n", await + step);  // no rule refuses anything
  EXPECT_EQ(setup.Run(RunArguments(setup)).code, 4);
}

TEST_F(Replay, TheExampleOfARecordedMessagePassesWithItsRuleAndFailsWithoutIt) {
  const std::string example = std::string(FENLUX_EXAMPLES) + "/recorded.toml";
  const Arguments socket{"--socket", File("host.sock")};
  const Outcome outcome = setup.Run({"run", "--json", "--config", example, socket[0], socket[1]});
  EXPECT_EQ(outcome.code, 0) << outcome.out << outcome.err;
  EXPECT_EQ(JsonValue(outcome.out, "summary.notifications.answered"), "3");
  const std::string scenario = std::string(FENLUX_EXAMPLES) + "/scenario-recorded.toml";
  setup.WriteHost("stop_at_end = true\n[emulator]\nscenario = '" + scenario + "'\n");
  EXPECT_EQ(setup.Run(RunArguments(setup)).code, 4);
}

TEST_F(Replay, AnIncompleteCaptureIsRefused) {
  setup.Write("letter", "not a capture at all");
  Outcome outcome = Play({}, "letter");
  EXPECT_EQ(outcome.code, 2);
  EXPECT_THAT(outcome.err, HasSubstr("letter cannot be replayed: it is not a capture\n"));
  outcome = Play({}, "missing");
  EXPECT_EQ(outcome.code, 2);
  EXPECT_THAT(outcome.err, HasSubstr("missing cannot be opened: No such file or directory\n"));

  std::ifstream stream(FENLUX_GOLDEN_CAPTURE, std::ios::binary);
  std::string bytes{std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
  bytes[92 + 4] = '\x03';  // the length of the first packet's block
  setup.Write("damaged", bytes);
  outcome = Play({}, "damaged");
  EXPECT_EQ(outcome.code, 2);
  EXPECT_THAT(outcome.err, HasSubstr("damaged cannot be replayed: it is damaged at offset 92: "));
  EXPECT_EQ(setup.Run({"replay", "--speed", "2", File("letter")}).code, 2);
}

TEST_F(Replay, AModuleThatCannotBeLoadedIsAnErrorNotADifference) {
  Record();
  const Outcome outcome = Play({"--module", File("no-such-module.so")});
  EXPECT_EQ(outcome.code, 3);
  EXPECT_THAT(outcome.err, HasSubstr("cannot load the module: "));
}

}  // namespace
}  // namespace fenlux::testing
