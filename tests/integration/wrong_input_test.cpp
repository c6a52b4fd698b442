// Wrong inputs: each message says where the mistake is, what it is and what to do; the exit code indicates its kind.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tests/integration/host_process.h"

namespace fenlux::testing {
namespace {

struct WrongInput {
  const char* name;
  const char* config;   // the content of host.toml
  Arguments arguments;  // "@" is the setup's directory
  int code;
  const char* message;  // the whole of standard error; "@" is the setup's directory
};

const Arguments kRun{"run", "--config", "@/host.toml"};
const Arguments kCheck{"check", "@/host.toml"};

const WrongInput kInputs[] = {
    // Words of the command line.
    {"no command", "", {}, 2, "fenlux-host: the command is missing; \"fenlux-host --help\" lists the commands\n"},
    {"mistyped command", "", {"chekc"}, 2, "fenlux-host: unknown command \"chekc\"; did you mean \"check\"?\n"},
    {"unknown command",
     "",
     {"walk"},
     2,
     "fenlux-host: unknown command \"walk\"; \"fenlux-host --help\" lists the commands\n"},
    {"no operation",
     "",
     {"ctl"},
     2,
     "fenlux-host: the operation is missing; \"fenlux-host ctl --help\" lists the operations\n"},
    {"mistyped operation",
     "",
     {"ctl", "stauts"},
     2,
     "fenlux-host: unknown operation \"stauts\"; did you mean \"status\"?\n"},
    {"mistyped operation of a group",
     "",
     {"ctl", "monitor", "ad"},
     2,
     "fenlux-host: unknown operation \"ad\"; did you mean \"add\"?\n"},
    {"unknown operation of a group",
     "",
     {"ctl", "record", "everything"},
     2,
     "fenlux-host: unknown operation \"everything\"; \"fenlux-host ctl record --help\" lists the operations\n"},
    {"mistyped option",
     "",
     {"run", "--confg", "@/host.toml"},
     2,
     "fenlux-host: unknown option \"--confg\" of fenlux-host run; did you mean \"--config\"?\n"},
    {"mistyped option of an operation",
     "",
     {"ctl", "stop", "--claer"},
     2,
     "fenlux-host: unknown option \"--claer\" of fenlux-host ctl stop; did you mean \"--clear\"?\n"},
    {"unknown option",
     "",
     {"check", "@/host.toml", "--everything"},
     2,
     "fenlux-host: unknown option \"--everything\" of fenlux-host check; \"fenlux-host check --help\" lists the "
     "options\n"},
    {"missing option",
     "",
     {"run"},
     2,
     "fenlux-host: --config FILE is missing; usage: fenlux-host run --config FILE [OPTIONS]\n"},
    {"missing value", "", {"run", "--config"}, 2, "fenlux-host: --config needs a value: --config FILE\n"},
    {"missing argument",
     "",
     {"ctl", "monitor", "add", "1"},
     2,
     "fenlux-host: path is missing; usage: fenlux-host ctl monitor add TYPE PATH [OPTIONS]\n"},
    {"one argument too many",
     "",
     {"ctl", "status", "now"},
     2,
     "fenlux-host: unexpected argument \"now\"; \"fenlux-host ctl status --help\" shows what it takes\n"},
    {"malformed duration",
     "",
     {"run", "--config", "@/host.toml", "--duration", "soon"},
     2,
     "fenlux-host: --duration: must be seconds, or a number with a unit, such as 300ms, 30s, 5m or 2h, not \"soon\"\n"},
    {"negative duration",
     "",
     {"run", "--config", "@/host.toml", "--duration", "-1"},
     2,
     "fenlux-host: --duration: must be seconds, or a number with a unit, such as 300ms, 30s, 5m or 2h, not \"-1\"\n"},
    {"malformed number",
     "",
     {"ctl", "grsp", "x"},
     2,
     "fenlux-host: mode: must be an integer from 0 to 4294967295, not \"x\"\n"},
    {"code that is not a number",
     "",
     {"ctl", "watch", "--code", "open"},
     2,
     "fenlux-host: --code: must be an integer from 0 to 4294967295, not \"open\"\n"},
    {"number out of range",
     "",
     {"decode", "@/c", "--code", "4294967296"},
     2,
     "fenlux-host: --code: must be an integer from 0 to 4294967295, not \"4294967296\"\n"},
    {"neither on nor off",
     "",
     {"ctl", "grhara", "offf"},
     2,
     "fenlux-host: state: must be on or off, not \"offf\"; did you mean \"off\"?\n"},
    // Files that cannot be read.
    {"missing configuration",
     "",
     {"run", "--config", "@/none.toml"},
     2,
     "@/none.toml:1:1: (file): cannot be read: No such file or directory; check the path\n"},
    {"directory as configuration",
     "",
     {"run", "--config", "@"},
     2,
     "@:1:1: (file): cannot be read: it is a directory; name a file\n"},
    {"missing file to check",
     "",
     {"check", "@/none.toml"},
     2,
     "@/none.toml:1:1: (file): cannot be read: No such file or directory; check the path\n"},
    {"missing configuration of ctl",
     "",
     {"ctl", "--config", "@/none.toml", "status"},
     2,
     "@/none.toml:1:1: (file): cannot be read: No such file or directory; check the path\n"},
    {"missing scenario", "\n[emulator]\nscenario = 'no.toml'\n", kCheck, 2,
     "@/host.toml:3:12: emulator.scenario: @/no.toml cannot be read: No such file or directory; check the path\n"},
    {"missing configuration block", "[module]\nconfig_block_file = 'b'\n", kRun, 2,
     "@/host.toml:2:21: module.config_block_file: @/b cannot be read: No such file or directory; check the path\n"},
    {"missing capture",
     "",
     {"decode", "@/none.pcapng"},
     2,
     "fenlux-host: @/none.pcapng cannot be opened: No such file or directory\n"},
    {"missing items",
     "",
     {"ctl", "net-control", "add", "1", "@/none.toml"},
     2,
     "@/none.toml:1:1: (file): cannot be read: No such file or directory; check the path\n"},
    // Settings.
    {"syntax error", "[mod\u00fcle]\n", kCheck, 2,
     "@/host.toml:1:5: (syntax): only printable ASCII characters are allowed outside strings and comments, and after a "
     "backslash\n"},
    {"mistyped section", "[judgin]\n", kCheck, 2,
     "@/host.toml:1:2: judgin: is not a known key; did you mean \"judging\"?\n"},
    {"mistyped key", "[module]\nenabeld = true\n", kRun, 2,
     "@/host.toml:2:1: module.enabeld: is not a known key; did you mean \"enabled\"?\n"},
    {"mistyped word", "[log]\nconsole = 'warnig'\n", kRun, 2,
     "@/host.toml:2:11: log.console: must be one of detail, event, notice, warning, problem, alert, off, not "
     "\"warnig\"; did you mean \"warning\"?\n"},
    {"mistyped event", "[[judging.rules]]\nevents = ['opn']\ndecision = 3\n", kCheck, 2,
     "@/host.toml:2:10: judging.rules[0].events: \"opn\" is not one of access, endpoint, open, remote, unanswered; "
     "did you mean \"open\"?\n"},
    {"mistyped kind of recording", "[capture]\nkinds = ['request']\n", kCheck, 2,
     "@/host.toml:2:9: capture.kinds: \"request\" is not one of requests, notifications, judgements, facts, calls; did "
     "you mean \"requests\"?\n"},
    {"mistyped kernel event", "[emulator.kernel]\nevents = ['acess']\n", kCheck, 2,
     "@/host.toml:2:10: emulator.kernel.events: unknown event \"acess\"; the events are open, access and exec; did you "
     "mean \"access\"?\n"},
    {"value out of range", "[module]\nclient_type = 3\n", kRun, 2,
     "@/host.toml:2:15: module.client_type: must be from 1 to 2, not 3\n"},
    {"value of another type", "stop_at_end = 'yes'\n", kRun, 2,
     "@/host.toml:1:15: stop_at_end: must be true or false\n"},
    {"unset variable", "[log]\nfile = '${FENLUX_NO_SUCH}/x'\n", kRun, 2,
     "@/host.toml:2:8: log.file: refers to the environment variable FENLUX_NO_SUCH, which is not set\n"},
    {"rule without a decision", "[[judging.rules]]\npath = '*'\n", kRun, 2,
     "@/host.toml:1:1: judging.rules[0].decision: is missing\n"},
    {"directory as log file", "[log]\nfile = '.'\n", kRun, 2,
     "fenlux-host: the log file @ cannot be opened for writing: Is a directory\n"},
    {"socket of a host without one",
     "[control]\nenabled = false\n",
     {"run", "--config", "@/host.toml", "--socket", "@/s"},
     2,
     "fenlux-host: --socket conflicts with [control] enabled = false\n"},
    {"ctl on a host without a socket",
     "[control]\nenabled = false\n",
     {"ctl", "--config", "@/host.toml", "status"},
     2,
     "@/host.toml:2:11: control.enabled: this host has no control socket; remove the setting and restart it, to use "
     "ctl\n"},
    // Missing values.
    {"no host",
     "",
     {"ctl", "--socket", "@/s", "status"},
     3,
     "fenlux-host: no host reachable on the control socket @/s: No such file or directory\n"},
    {"missing module", "[module]\nlibrary = 'none.so'\n", kRun, 3,
     "fenlux-host: cannot load the module: @/none.so: cannot open shared object file: No such file or directory\n"},
};

std::string Placed(std::string text, const std::string& directory) {
  for (std::size_t at = text.find('@'); at != std::string::npos; at = text.find('@', at + directory.size())) {
    text.replace(at, 1, directory);
  }
  return text;
}

TEST(WrongInput, IsReportedWithPositionReasonAndRemedy) {
  static_assert(std::size(kInputs) >= 40);
  const HostSetup setup;
  const std::string directory = setup.Path().string();
  for (const WrongInput& input : kInputs) {
    SCOPED_TRACE(input.name);
    setup.Write("host.toml", input.config);
    Arguments arguments;
    for (const std::string& argument : input.arguments) arguments.push_back(Placed(argument, directory));
    const Outcome outcome = setup.Run(arguments);
    EXPECT_EQ(outcome.code, input.code);
    EXPECT_EQ(outcome.err, Placed(input.message, directory));
    EXPECT_EQ(outcome.out, "");
  }
}

TEST(WrongInput, IsReportedAsJsonToo) {
  const HostSetup setup;
  const std::string file = setup.Write("host.toml", "\n[log]\nfiel = 'x'\n");
  const Outcome run = setup.Run({"run", "--config", file, "--json"});
  EXPECT_EQ(run.code, 2);
  EXPECT_EQ(run.err,
            "{\"severity\":\"problem\",\"text\":\"" + file +
                ":3:1: log.fiel: is not a known key; did you mean \\\"file\\\"?\",\"file\":\"" + file +
                "\",\"line\":3,\"column\":1,\"key\":\"log.fiel\",\"reason\":\"is not a known key; did you mean "
                "\\\"file\\\"?\"}\n");
  const Outcome check = setup.Run({"check", "--json", file});
  EXPECT_EQ(check.code, 2);
  EXPECT_EQ(check.out, run.err);
  EXPECT_EQ(check.err, "");
  for (const Arguments& arguments :
       {Arguments{"run", "--json", "--what"}, Arguments{"ctl", "--json", "stauts"},
        Arguments{"decode", "--json", file + "x"}, Arguments{"ctl", "--json", "--socket", file + "x", "status"}}) {
    const Outcome outcome = setup.Run(arguments);
    EXPECT_EQ(JsonValue(outcome.err, "severity"), "problem") << outcome.err;
    EXPECT_EQ(JsonValue(outcome.err, "text").find("fenlux-host: "), 0U) << outcome.err;
  }
}

TEST(WrongInput, AnUnreadableConfigurationIsReportedWithTheReason) {
  if (::geteuid() == 0) GTEST_SKIP() << "skipped, because root may read every file";
  const HostSetup setup;
  const std::string file = setup.Write("host.toml", "");
  ASSERT_EQ(::chmod(file.c_str(), 0), 0);
  EXPECT_EQ(setup.Run({"check", file}).err,
            file + ":1:1: (file): cannot be read: Permission denied; check its permissions\n");
}

TEST(WrongInput, InOtherSettingsDoesNotKeepCtlFromReachingItsHost) {
  const HostSetup setup;
  setup.WriteHost("");
  HostProcess host(setup, RunArguments(setup));
  ASSERT_TRUE(host.WaitForError("Driver Interact Ready."));
  setup.WriteHost("no_such_key = 1\n[log]\nfile = '${FENLUX_NO_SUCH}/x'\n[emulator]\nscenario = 'none.toml'\n");
  const Outcome outcome = setup.Run({"ctl", "--config", (setup.Path() / "host.toml").string(), "status"});
  EXPECT_EQ(outcome.code, 0) << outcome.err;
  EXPECT_EQ(host.Stop().code, 0);
}

TEST(Duration, AcceptsAUnit) {
  const HostSetup setup;
  setup.WriteHost(kNoConnection);
  EXPECT_EQ(setup.Run(RunArguments(setup, {"--duration", "300ms"})).code, 0);
  EXPECT_EQ(setup.Run(RunArguments(setup, {"--duration=0.005m"})).code, 0);
}

}  // namespace
}  // namespace fenlux::testing
