// The program apart from its commands: version, help, colors, manual pages and shell completion.
#include <gtest/gtest.h>

#include <boost/filesystem/directory.hpp>
#include <boost/filesystem/operations.hpp>
#include <set>
#include <sstream>

#include "tests/integration/host_process.h"

namespace fenlux::testing {
namespace {

namespace fs = boost::filesystem;

const std::string kPages = FENLUX_PROGRAM_DIRECTORY "/pages";

TEST(Version, NamesTheHostTheModuleAndTheBuild) {
  const HostSetup setup;
  const Outcome outcome = setup.Run({"--version"});
  EXPECT_EQ(outcome.code, 0) << outcome.err;
  EXPECT_EQ(outcome.out.find("fenlux-host 0."), 0U) << outcome.out;
  EXPECT_TRUE(Contains(outcome.out, "\nmodule interface 0, module version 19072701\nbuild: ")) << outcome.out;
}

std::size_t LongestLine(const std::string& text) {
  std::size_t longest = 0;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) longest = std::max(longest, line.size());
  return longest;
}

TEST(Help, FitsTheWidthOfTheTerminal) {
  for (const std::size_t width : {std::size_t{60}, std::size_t{100}}) {
    HostSetup setup;
    setup.SetVariable("COLUMNS", std::to_string(width));
    for (const Arguments& arguments : {Arguments{"--help"}, Arguments{"run", "--help"}, Arguments{"ctl", "--help"},
                                       Arguments{"ctl", "register-process", "--help"}}) {
      const Outcome outcome = setup.Run(arguments);
      EXPECT_LE(LongestLine(outcome.out), width) << outcome.out;
      EXPECT_TRUE(Contains(outcome.out, "Usage: fenlux-host")) << outcome.out;
    }
  }
}

TEST(Help, DescribesTheOptionsOfAnOperationAndTheCommonOnes) {
  HostSetup setup;
  setup.SetVariable("COLUMNS", "80");
  EXPECT_EQ(setup.Run({"ctl", "stop", "--help"}).out,
            "End the current connection; the module reconnects after 5 seconds\n"
            "\n"
            "Usage: fenlux-host ctl stop [OPTIONS]\n"
            "\n"
            "Options:\n"
            "  -h, --help  Show this help and exit\n"
            "  --clear     first clear the policy's monitor objects in the driver\n"
            "\n"
            "Common options:\n"
            "  --socket PATH           The host's control socket\n"
            "  --config FILE           The host's configuration, which may name the socket\n"
            "  --json                  Show the result as JSON\n"
            "  --insecure-permissions  As root, use a file of items that other users may\n"
            "                          change\n");
}

// A host without a connection that logs one event: the address of its metrics.
const std::string kOneEvent = std::string(kNoConnection) + "[metrics]\nlisten = '127.0.0.1:0'\n";

TEST(Color, IsWrittenOnlyOnRequest) {
  HostSetup setup;
  setup.WriteHost(kOneEvent);
  const auto err = [&](const Arguments& more) {
    Arguments arguments = RunArguments(setup, {"--duration", "300ms"});
    arguments.insert(arguments.end(), more.begin(), more.end());
    return setup.Run(arguments).err;
  };
  EXPECT_FALSE(Contains(err({}), "\x1b["));
  EXPECT_TRUE(Contains(err({"--color", "always"}), "\x1b["));
  EXPECT_FALSE(Contains(err({"--color=never"}), "\x1b["));
  setup.SetVariable("NO_COLOR", "1");
  EXPECT_TRUE(Contains(err({"--color", "always"}), "\x1b["));
}

// On a terminal of 50 columns.
class Terminal : public ::testing::Test {
 protected:
  void SetUp() override {
    if (HostProcess(setup, "sh", {"-c", "command -v script && command -v stty"}).Wait().code != 0) {
      GTEST_SKIP() << "skipped, because script or stty is not installed";
    }
    setup.WriteHost(kOneEvent);
  }
  std::string Shown(const std::string& arguments) {
    const std::string command = "stty cols 50; exec " + HostProgram() + " " + arguments;
    return HostProcess(setup, "script", {"-qec", command, "/dev/null"}).Wait().out;
  }
  std::string Run() { return "run --duration 300ms --config " + (setup.Path() / "host.toml").string(); }

  HostSetup setup;
};

TEST_F(Terminal, GetsHelpOfItsWidth) {
  const std::string help = Shown("run --help");
  EXPECT_TRUE(Contains(help, "Usage: fenlux-host run")) << help;
  EXPECT_LE(LongestLine(help), 51U) << help;  // with the carriage return
}

TEST_F(Terminal, GetsColorsUnlessTheyAreDisabled) {
  setup.SetVariable("TERM", "xterm");
  setup.SetVariable("NO_COLOR", "");
  EXPECT_TRUE(Contains(Shown(Run()), "\x1b[36mevent"));
  EXPECT_FALSE(Contains(Shown(Run() + " --color never"), "\x1b["));
  setup.SetVariable("NO_COLOR", "1");
  EXPECT_FALSE(Contains(Shown(Run()), "\x1b["));
}

// The commands that the program has, as its help lists them.
std::set<std::string> Commands(const HostSetup& setup, const Arguments& command) {
  Arguments arguments = command;
  arguments.push_back("--help");
  std::istringstream lines(setup.Run(arguments).out);
  std::set<std::string> names;
  bool inList = false;
  for (std::string line; std::getline(lines, line);) {
    if (line == "Commands:" || line == "Operations:") {
      inList = true;
    } else if (line.empty()) {
      inList = false;
    } else if (inList && line.size() > 2 && line[2] != ' ') {
      names.insert(line.substr(2, line.find(' ', 2) - 2));
    }
  }
  return names;
}

TEST(ManualPages, ExistForTheProgramAndEveryCommand) {
  const HostSetup setup;
  std::set<std::string> expected{"fenlux-host.1"};
  for (const std::string& command : Commands(setup, {})) expected.insert("fenlux-host-" + command + ".1");
  EXPECT_GE(expected.size(), 5U);
  std::set<std::string> pages;
  for (const auto& entry : fs::directory_iterator(kPages)) {
    if (entry.path().extension() == ".1") pages.insert(entry.path().filename().string());
  }
  EXPECT_EQ(pages, expected);
}

TEST(ManualPages, RenderWithoutWarnings) {
  HostSetup setup;
  if (HostProcess(setup, "sh", {"-c", "command -v man && command -v groff"}).Wait().code != 0) {
    GTEST_SKIP() << "skipped, because man or groff is not installed";
  }
  setup.SetVariable("LC_ALL", "C.UTF-8");
  setup.SetVariable("MANWIDTH", "80");
  setup.SetVariable("MANROFFSEQ", "");
  for (const auto& entry : fs::directory_iterator(kPages)) {
    if (entry.path().extension() != ".1") continue;
    const Outcome outcome =
        HostProcess(setup, "man", {"--warnings", "-E", "UTF-8", "-l", "-Tutf8", "-Z", entry.path().string()}).Wait();
    EXPECT_EQ(outcome.code, 0) << entry.path();
    EXPECT_EQ(outcome.err, "") << entry.path();
    EXPECT_GT(outcome.out.size(), 500U) << entry.path();
  }
}

TEST(ManualPages, DescribeEveryOperation) {
  const HostSetup setup;
  const std::string page = HostProcess(setup, "cat", {kPages + "/fenlux-host-ctl.1"}).Wait().out;
  for (const std::string& operation : Commands(setup, {"ctl"})) {
    std::string escaped;
    for (const char character : operation) escaped += character == '-' ? "\\-" : std::string(1, character);
    EXPECT_TRUE(Contains(page, "\n.B " + escaped)) << operation;
  }
}

class Completion : public ::testing::Test {
 protected:
  void SetUp() override {
    if (HostProcess(setup, "sh", {"-c", "command -v bash"}).Wait().code != 0) {
      GTEST_SKIP() << "skipped, because bash is not installed";
    }
  }
  // What bash offers for the last of these words.
  std::set<std::string> Offered(const std::string& words) {
    const std::string script = "cd '" + setup.Path().string() + "' && source " + kPages + "/fenlux-host.bash && " +
                               "COMP_WORDS=(" + words + ") && COMP_CWORD=$((${#COMP_WORDS[@]} - 1)) && _fenlux_host" +
                               " && printf '%s\\n' \"${COMPREPLY[@]}\"";
    const Outcome outcome = HostProcess(setup, "bash", {"--norc", "-c", script}).Wait();
    EXPECT_EQ(outcome.code, 0) << outcome.err;
    EXPECT_EQ(outcome.err, "");
    std::set<std::string> offered;
    std::istringstream lines(outcome.out);
    for (std::string line; std::getline(lines, line);) {
      if (!line.empty()) offered.insert(line);
    }
    return offered;
  }

  HostSetup setup;
};

using Words = std::set<std::string>;

TEST_F(Completion, OffersCommandsAndOperations) {
  Words commands = Commands(setup, {});
  commands.insert({"--help", "--version"});
  EXPECT_EQ(Offered("fenlux-host ''"), commands);
  EXPECT_EQ(Offered("fenlux-host che"), (Words{"check"}));
  for (const std::string& operation : Commands(setup, {"ctl"})) {
    EXPECT_EQ(Offered("fenlux-host ctl ''").count(operation), 1U) << operation;
  }
  EXPECT_EQ(Offered("fenlux-host ctl --json polic"), (Words{"policy-changed"}));
  EXPECT_EQ(Offered("fenlux-host ctl monitor s"), (Words{"send"}));
}

TEST_F(Completion, OffersOptionsAndTheirValues) {
  EXPECT_EQ(Offered("fenlux-host run --co"), (Words{"--config", "--color"}));
  EXPECT_EQ(Offered("fenlux-host run --color a"), (Words{"auto", "always"}));
  EXPECT_EQ(Offered("fenlux-host ctl stop --"),
            (Words{"--clear", "--config", "--help", "--insecure-permissions", "--json", "--socket"}));
  EXPECT_EQ(Offered("fenlux-host ctl grhara o"), (Words{"off", "on"}));
  EXPECT_EQ(Offered("fenlux-host run --duration 3"), Words{});
}

TEST_F(Completion, OffersFiles) {
  setup.Write("host.toml", "");
  EXPECT_EQ(Offered("fenlux-host run --config ho"), (Words{"host.toml"}));
  EXPECT_EQ(Offered("fenlux-host check ho"), (Words{"host.toml"}));
}

}  // namespace
}  // namespace fenlux::testing
