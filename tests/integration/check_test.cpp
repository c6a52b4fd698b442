// `fenlux-host check`, and the command line itself.
#include <gtest/gtest.h>

#include "tests/integration/host_process.h"

namespace fenlux::testing {
namespace {

TEST(Check, AcceptsTheExamples) {
  HostSetup setup;
  const Outcome scenario = setup.Run({"check", FENLUX_EXAMPLES "/scenario-all-codes.toml"});
  EXPECT_EQ(scenario.code, 0) << scenario.err;
  EXPECT_EQ(scenario.out, FENLUX_EXAMPLES "/scenario-all-codes.toml: no errors\n");
  EXPECT_EQ(scenario.err, "");
  // Its policy shows what the module skips.
  const Outcome scripted = setup.Run({"check", FENLUX_EXAMPLES "/scripted.toml"});
  EXPECT_EQ(scripted.code, 0) << scripted.err;
  EXPECT_EQ(scripted.out, FENLUX_EXAMPLES "/scripted.toml: no errors, 2 warnings\n");
  const Outcome recorded = setup.Run({"check", FENLUX_EXAMPLES "/recorded.toml"});
  EXPECT_EQ(recorded.code, 0) << recorded.err;
  EXPECT_EQ(recorded.out, FENLUX_EXAMPLES "/recorded.toml: no errors\n");
  setup.SetVariable("FENLUX_WATCHED", setup.Directory("watched"));
  const Outcome kernel = setup.Run({"check", FENLUX_EXAMPLES "/kernel.toml"});
  EXPECT_EQ(kernel.code, 0) << kernel.err;
}

TEST(Check, ReportsEveryErrorWithFileLineColumnKeyAndReason) {
  const HostSetup setup;
  const std::string scenario = setup.Write("s.toml", "[[steps]]\nnotify = 4098\ncount = 0\n");
  const std::string file = setup.Write("h.toml",
                                       "stop_at_end = 'yes'\n"
                                       "[emulator]\n"
                                       "scenario = 's.toml'\n"
                                       "[module]\n"
                                       "client_type = 3\n"
                                       "tpyo = 1\n"
                                       "[[judging.rules]]\n"
                                       "path = '*'\n");
  const Outcome outcome = setup.Run({"check", file});
  EXPECT_EQ(outcome.code, 2);
  EXPECT_EQ(outcome.out, "");
  EXPECT_EQ(outcome.err, file + ":1:15: stop_at_end: must be true or false\n" + file +
                             ":5:15: module.client_type: must be from 1 to 2, not 3\n" + file +
                             ":6:1: module.tpyo: is not a known key\n" + file +
                             ":7:1: judging.rules[0].decision: is missing\n" + scenario +
                             ":3:9: steps[0].count: must be from 1 to 4294967295, not 0\n");
}

TEST(Check, ReportsASyntaxErrorAndAMissingFile) {
  const HostSetup setup;
  const std::string file = setup.Write("h.toml", "[module\n");
  const Outcome syntax = setup.Run({"check", file});
  EXPECT_EQ(syntax.code, 2);
  EXPECT_EQ(syntax.err.find(file + ":1:"), 0U) << syntax.err;
  EXPECT_TRUE(Contains(syntax.err, ": (syntax): ")) << syntax.err;
  const Outcome missing = setup.Run({"check", "no-such-file.toml"});
  EXPECT_EQ(missing.code, 2);
  EXPECT_EQ(missing.err, "no-such-file.toml:1:1: (file): cannot be read: No such file or directory; check the path\n");
}

TEST(CommandLine, EveryCommandHasHelp) {
  const HostSetup setup;
  const std::vector<Arguments> commands = {{},
                                           {"run"},
                                           {"check"},
                                           {"ctl"},
                                           {"ctl", "status"},
                                           {"ctl", "stop"},
                                           {"ctl", "grsp"},
                                           {"ctl", "monitor"},
                                           {"ctl", "monitor", "add"},
                                           {"ctl", "net-control", "apply"},
                                           {"ctl", "interface", "ltrkd"}};
  for (Arguments command : commands) {
    command.push_back("--help");
    const Outcome outcome = setup.Run(command);
    EXPECT_EQ(outcome.code, 0) << outcome.err;
    EXPECT_TRUE(Contains(outcome.out, "Usage: fenlux-host")) << outcome.out;
  }
}

TEST(CommandLine, BadUsageExitsWithTwo) {
  const HostSetup setup;
  const std::vector<Arguments> commands = {{},
                                           {"walk"},
                                           {"run"},
                                           {"run", "--config", "x.toml", "--duration", "-1"},
                                           {"run", "--config", "x.toml", "--what"},
                                           {"check"},
                                           {"ctl"},
                                           {"ctl", "monitor"},
                                           {"ctl", "grsp"},
                                           {"ctl", "grhara", "perhaps"}};
  for (const Arguments& command : commands) {
    const Outcome outcome = setup.Run(command);
    EXPECT_EQ(outcome.code, 2) << outcome.out;
    EXPECT_NE(outcome.err, "");
  }
}

}  // namespace
}  // namespace fenlux::testing
