// `fenlux-host run`: how runs start and stop, what they print, and their exit codes.
#include <gtest/gtest.h>
#include <signal.h>

#include <boost/filesystem/operations.hpp>
#include <sstream>

#include "tests/integration/host_process.h"

namespace fenlux::testing {
namespace {

const std::string kRunRules = std::string(kSystemImage) + "[[judging.rules]]\npath = '*.secret'\ndecision = 3\n";

TEST(Run, PlaysAScenarioToItsEnd) {
  const HostSetup setup;
  setup.WriteHost("stop_at_end = true\n" + kRunRules, kThreeEvents);
  const Outcome outcome = setup.Run(RunArguments(setup));
  EXPECT_EQ(outcome.code, 0) << outcome.err << outcome.out;
  EXPECT_TRUE(Contains(outcome.err, "Driver Interact Ready.\n"));
  EXPECT_TRUE(Contains(outcome.err, "Current driver version=19072701\n"));
  EXPECT_TRUE(Contains(outcome.err, "[Driver]Monitor policy is empty-2.\n"));
  // Does not check the line for the end of the connection: the worker may not write it before the process ends.
  EXPECT_TRUE(Contains(outcome.out, "  sum                   3 = 2 + 1 + 0 + 0\n")) << outcome.out;
  EXPECT_TRUE(Contains(outcome.out, "  adds_up               yes\n"));
}

TEST(Run, WritesItsLogAndItsSummaryAsJson) {
  const HostSetup setup;
  setup.WriteHost("stop_at_end = true\n" + kRunRules, kThreeEvents);
  const Outcome outcome = setup.Run(RunArguments(setup, {"--json"}));
  EXPECT_EQ(outcome.code, 0) << outcome.err;
  EXPECT_EQ(CountOf(outcome.out, "\n"), 1U);
  EXPECT_EQ(JsonValue(outcome.out, "summary.fine"), "true");
  EXPECT_EQ(JsonValue(outcome.out, "summary.notifications.delivered"), "3");
  EXPECT_EQ(JsonValue(outcome.out, "summary.notifications.unanswered_by_design"), "1");
  EXPECT_EQ(JsonValue(outcome.out, "summary.codes.4098"), "1");
  EXPECT_EQ(JsonValue(outcome.out, "summary.decisions.3"), "1");
  EXPECT_EQ(JsonValue(outcome.out, "summary.verdicts.4"), "1");
  EXPECT_EQ(JsonValue(outcome.out, "summary.latency.count"), "3");
  std::istringstream lines(outcome.err);
  int count = 0;
  for (std::string line; std::getline(lines, line); ++count) {
    EXPECT_NE(JsonValue(line, "text").front(), '(') << line;
    EXPECT_NE(JsonValue(line, "severity"), "(none)") << line;
  }
  EXPECT_GT(count, 3);
}

TEST(Run, IsIndependentOfTheLocale) {
  for (const char* locale : {"C", "xx_XX.UTF-8"}) {  // the second one does not exist
    HostSetup setup;
    setup.SetVariable("LC_ALL", locale);
    setup.WriteHost("stop_at_end = true\n" + std::string(kSystemImage), kThreeEvents);
    const auto program = boost::filesystem::path(setup.Directory("j\u00fcrgen")) / "fenlux-host";
    boost::filesystem::copy_file(FENLUX_PROGRAM_DIRECTORY "/fenlux-host", program);
    HostProcess host(setup, program.string(),
                     RunArguments(setup, {"--module", FENLUX_PROGRAM_DIRECTORY "/libfenlux.so", "--json"}));
    const Outcome outcome = host.Wait();
    EXPECT_EQ(JsonValue(outcome.out, "summary.driver_was_told.system_processes"), "1") << outcome.err;
  }
}

TEST(Run, StopsAfterItsDuration) {
  const HostSetup setup;
  setup.WriteHost(kNoConnection);
  EXPECT_EQ(setup.Run(RunArguments(setup, {"--duration", "1"})).code, 0);
}

TEST(Run, ExitsWithFourAfterItsDurationIfTheDriverNeverConnected) {
  const HostSetup setup;
  setup.WriteHost("[emulator.faults]\nrefuse_connects = 1000\n");
  const Outcome outcome = setup.Run(RunArguments(setup, {"--duration", "0.3"}));
  EXPECT_EQ(outcome.code, 4) << outcome.err;
  EXPECT_TRUE(Contains(outcome.out, "fine                 no\n")) << outcome.out;
  EXPECT_TRUE(Contains(outcome.out, "  the driver never connected\n")) << outcome.out;
}

TEST(Run, StopsOnASignalWithoutAnErrorIfTheDriverNeverConnected) {
  const HostSetup setup;
  setup.WriteHost("[emulator.faults]\nrefuse_connects = 1000\n");
  HostProcess host(setup, RunArguments(setup));
  ASSERT_TRUE(host.WaitForError("Connection refused: "));
  EXPECT_EQ(host.Stop().code, 0);
}

TEST(Run, StopsOnSigintAndSigtermWithASummary) {
  for (const int signal : {SIGINT, SIGTERM}) {
    const HostSetup setup;
    setup.WriteHost("");
    HostProcess host(setup, RunArguments(setup));
    ASSERT_TRUE(host.WaitForError("Driver Interact Ready."));
    host.Signal(signal);
    const Outcome outcome = host.Wait();
    EXPECT_EQ(outcome.code, 0) << outcome.err;
    EXPECT_EQ(CountOf(outcome.out, "summary\n"), 1U);
    EXPECT_FALSE(boost::filesystem::exists(setup.Path() / "control/host.sock"));
  }
}

TEST(Run, PrintsItsSummaryOnSigusr1AndContinues) {
  const HostSetup setup;
  setup.WriteHost("");
  HostProcess host(setup, RunArguments(setup));
  ASSERT_TRUE(host.WaitForError("Driver Interact Ready."));
  host.Signal(SIGUSR1);
  ASSERT_TRUE(host.WaitForOutput("protocol_violations"));
  host.Signal(SIGUSR1);
  ASSERT_TRUE(host.WaitForOutput("protocol_violations", 2));
  EXPECT_EQ(host.Stop().code, 0);
}

TEST(Run, ExitsWithFourAfterAProtocolViolation) {
  const HostSetup setup;
  setup.WriteHost("stop_at_end = true\n", "[[steps]]\nnotify = 4098\nexpect_verdict = 5\n");
  const Outcome outcome = setup.Run(RunArguments(setup));
  EXPECT_EQ(outcome.code, 4) << outcome.err;
  EXPECT_TRUE(Contains(outcome.out, "protocol_violations  1\n")) << outcome.out;
  EXPECT_TRUE(Contains(outcome.out, "fine                 no\n")) << outcome.out;
}

TEST(Run, ExitsWithTwoAndReportsEveryErrorOfABadConfiguration) {
  const HostSetup setup;
  const std::string file = setup.Write("host.toml", "one = 1\n[module]\ntwo = 2\n");
  const Outcome outcome = setup.Run(RunArguments(setup));
  EXPECT_EQ(outcome.code, 2);
  EXPECT_EQ(outcome.err, file + ":1:1: one: is not a known key\n" + file + ":3:1: module.two: is not a known key\n");
  EXPECT_EQ(setup.Run({"run", "--config", "no-such-file.toml"}).code, 2);
}

TEST(Run, ExitsWithTwoIfItsLogFileCannotBeOpened) {
  const HostSetup setup;
  setup.WriteHost("[log]\nfile = '" + setup.Directory("d") + "'\n");
  const Outcome outcome = setup.Run(RunArguments(setup));
  EXPECT_EQ(outcome.code, 2);
  EXPECT_EQ(outcome.err,
            "fenlux-host: the log file " + setup.Directory("d") + " cannot be opened for writing: Is a directory\n");
}

TEST(Run, ExitsWithTwoIfOthersCouldReachItsControlSocket) {
  const HostSetup setup;
  const std::string directory = setup.Directory("control");
  boost::filesystem::permissions(directory, boost::filesystem::perms(0755));
  setup.WriteHost("");
  const Outcome outcome = setup.Run(RunArguments(setup));
  EXPECT_EQ(outcome.code, 2);
  EXPECT_TRUE(Contains(outcome.err, "the directory " + directory +
                                        " of the control socket must be owned by you and accessible to you only"))
      << outcome.err;
}

TEST(Run, UsesASeparateLevelForTheLogFile) {
  const HostSetup setup;
  setup.WriteHost("stop_at_end = true\n[log]\nconsole = 'off'\nfile = 'host.log'\nfile_level = 'detail'\n",
                  "[[steps]]\nnotify = 4098\noplock = 1\npath = '/a'\n");
  const Outcome outcome = setup.Run(RunArguments(setup));
  EXPECT_EQ(outcome.code, 0) << outcome.out;
  EXPECT_EQ(outcome.err, "");
  HostProcess log(setup, "cat", {(setup.Path() / "host.log").string()});
  EXPECT_TRUE(Contains(log.Wait().out, "detail  [Ignore OPLock]category=1 process=")) << log.Out();
}

TEST(Run, TranslatesTheModulesTexts) {
  const HostSetup setup;
  setup.WriteHost("[translations]\n'Driver Interact Ready.' = 'Der Treiber ist da.'\n");
  HostProcess host(setup, RunArguments(setup));
  EXPECT_TRUE(host.WaitForError("event   Der Treiber ist da.\n"));
  EXPECT_EQ(host.Stop().code, 0);
}

TEST(Run, ADisabledModuleDoesNotConnect) {
  const HostSetup setup;
  setup.WriteHost("[module]\nenabled = false\n");
  const Outcome outcome = setup.Run(RunArguments(setup, {"--duration", "0.5"}));
  EXPECT_EQ(outcome.code, 0) << outcome.err;
  EXPECT_TRUE(Contains(outcome.out, "  opened                 0\n")) << outcome.out;
}

TEST(Run, SendsContextDataWithItsVerdict) {
  const HostSetup setup;
  setup.WriteHost("stop_at_end = true\n[[judging.rules]]\ndecision = 5\ncontext = 'hello'\n",
                  "[[steps]]\nnotify = 4098\nexpect_verdict = 6\n");
  const Outcome outcome = setup.Run(RunArguments(setup));
  EXPECT_EQ(outcome.code, 0) << outcome.out << outcome.err;
}

}  // namespace
}  // namespace fenlux::testing
