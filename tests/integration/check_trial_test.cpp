// `fenlux-host check` tries the first steps of a run, and warns of probable mistakes.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <boost/filesystem/operations.hpp>

#include "tests/integration/host_process.h"

namespace fenlux::testing {
namespace {

namespace fs = boost::filesystem;

class CheckTrial : public ::testing::Test {
 protected:
  // The findings of a configuration, without the file's name in front of each.
  std::string Findings(const std::string& config, int code) {
    file = setup.Write("host.toml", config);
    const Outcome outcome = setup.Run({"check", file});
    EXPECT_EQ(outcome.code, code) << outcome.err;
    std::string text = outcome.err;
    for (std::size_t at = text.find(file + ":"); at != std::string::npos; at = text.find(file + ":")) {
      text.erase(at, file.size() + 1);
    }
    out = outcome.out;
    return text;
  }
  std::string Warnings(const std::string& config) { return Findings(config, 0); }
  std::string Errors(const std::string& config) { return Findings(config, 2); }
  std::string In(const std::string& name) const { return (setup.Path() / name).string(); }

  HostSetup setup;
  std::string file;
  std::string out;
};

TEST_F(CheckTrial, AnEmptyConfigurationIsAWarning) {
  EXPECT_EQ(Warnings("# nothing\n"),
            "1:1: (file): warning: is empty: the host runs with an emulated driver without events, and refuses "
            "nothing\n");
  EXPECT_EQ(out, file + ": no errors, 1 warning\n");
}

TEST_F(CheckTrial, AModuleThatCannotBeLoadedIsAnError) {
  EXPECT_EQ(Errors("[module]\nlibrary = 'none.so'\n"),
            "2:11: module.library: cannot load the module: " + In("none.so") +
                ": cannot open shared object file: No such file or directory\n");
  setup.Write("text.so", "text");
  EXPECT_TRUE(Contains(Errors("[module]\nlibrary = 'text.so'\n"), "2:11: module.library: cannot load the module: "));
}

TEST_F(CheckTrial, FilesThatCannotBeWrittenAreErrors) {
  setup.Directory("directory");
  EXPECT_EQ(Errors("[log]\nfile = 'directory'\n"),
            "2:8: log.file: the log file " + In("directory") + " cannot be opened for writing: Is a directory\n");
  EXPECT_EQ(Errors("[capture]\nfile = 'directory'\n"),
            "2:8: capture.file: " + In("directory") + " is a directory; name a file\n");
  EXPECT_EQ(Errors("[capture]\nfile = 'none/c.pcapng'\n"), "2:8: capture.file: " + In("none/c.pcapng") +
                                                               " cannot be created in " + In("none") +
                                                               ": No such file or directory\n");
  EXPECT_EQ(Warnings("[log]\nfile = 'none/host.log'\n"), "");  // a run creates its directory
  EXPECT_FALSE(fs::exists(In("none")));
}

TEST_F(CheckTrial, FilesInDirectoriesOfOthersAreErrors) {
  if (::geteuid() == 0) GTEST_SKIP() << "skipped, because root may write everywhere";
  EXPECT_EQ(Errors("[log]\nfile = '/usr/host.log'\n"),
            "2:8: log.file: /usr/host.log cannot be created in /usr: Permission denied\n");
}

TEST_F(CheckTrial, FilesThatOthersMayWriteAreErrorsForRoot) {
  if (::geteuid() != 0) GTEST_SKIP() << "skipped, because this needs root";
  setup.Write("open.log", "");
  ASSERT_EQ(::chmod(In("open.log").c_str(), 0666), 0);
  EXPECT_EQ(Errors("[log]\nfile = 'open.log'\n").find("2:8: log.file: " + In("open.log") + " may be written by other"),
            0U);
  EXPECT_EQ(setup.Run({"check", "--insecure-permissions", file}).code, 0);
}

TEST_F(CheckTrial, AControlSocketThatCannotBeOpenedIsAnError) {
  setup.Write("file", "");
  ASSERT_EQ(::chmod(setup.Path().c_str(), 0700), 0);
  EXPECT_TRUE(Contains(Errors("[control]\nsocket = 'file'\n"), "2:10: control.socket: cannot open the control socket " +
                                                                   In("file") + ": something that is not a socket"));
  ASSERT_EQ(::chmod(setup.Directory("open").c_str(), 0755), 0);
  EXPECT_TRUE(Contains(Errors("[control]\nsocket = 'open/s'\n"), "must be owned by you and accessible to you only"));
  EXPECT_EQ(Warnings("[control]\nsocket = 'new/s'\n"), "");
  EXPECT_FALSE(fs::exists(In("new")));
}

TEST_F(CheckTrial, AnAddressThatCannotServeMetricsIsAnError) {
  EXPECT_EQ(Warnings("[metrics]\nlisten = '127.0.0.1:0'\n"), "");
  // The addresses of TEST-NET-1 belong to no machine.
  const std::string foreign = Errors("[metrics]\nlisten = '192.0.2.1:0'\nallow_remote = true\n");
  EXPECT_TRUE(Contains(foreign, "2:10: metrics.listen: cannot serve metrics on 192.0.2.1 port 0: ")) << foreign;
  EXPECT_TRUE(Contains(foreign, "Cannot assign requested address")) << foreign;
  EXPECT_TRUE(Contains(foreign, "; choose another address with [metrics] listen\n")) << foreign;
}

// A host that runs with this file may be using the port.
TEST_F(CheckTrial, APortInUseIsAWarning) {
  const HostSetup other;
  other.WriteHost("[metrics]\nlisten = '127.0.0.1:0'\n");
  HostProcess host(other, RunArguments(other));
  ASSERT_TRUE(host.WaitForError("[host] metrics at http://127.0.0.1:"));
  const std::string log = host.Err();
  const std::size_t begin = log.find("http://127.0.0.1:") + std::string("http://127.0.0.1:").size();
  const std::string port = log.substr(begin, log.find("/metrics", begin) - begin);
  const std::string found = Warnings("[metrics]\nlisten = '127.0.0.1:" + port + "'\n");
  EXPECT_TRUE(Contains(found, "2:10: metrics.listen: warning: cannot serve metrics on 127.0.0.1 port " + port + ": "))
      << found;
  EXPECT_TRUE(Contains(found, "Address already in use")) << found;
  EXPECT_TRUE(Contains(found, ", unless it is this host that uses the port\n")) << found;
}

TEST_F(CheckTrial, DirectoriesThatAreSkippedAreWarnings) {
  setup.Write("file", "");
  EXPECT_EQ(Warnings("[policy]\ndirectories = ['none', 'file']\n"),
            "2:15: policy.directories: warning: " + In("none") +
                " does not exist; it is skipped until it does\n2:15: policy.directories: warning: " + In("file") +
                " is not a directory and is skipped; name its directory\n");
}

TEST_F(CheckTrial, DirectoriesThatTheKernelDoesNotReportAreNamed) {
  const std::string policy = Warnings("[policy]\ndirectories = ['/proc', '/tmp']\n[emulator]\nsource = 'fanotify'\n");
  EXPECT_TRUE(Contains(policy,
                       "2:15: policy.directories: warning: /proc cannot be watched: is in a proc file system, for "
                       "which the kernel reports no events\n"))
      << policy;
  EXPECT_TRUE(Contains(policy, "/tmp cannot be watched: is /tmp itself, which is never watched\n")) << policy;
  EXPECT_EQ(Contains(policy, "emulator.source: warning: needs root; start the host as root, or with sudo\n"),
            ::geteuid() != 0);
  EXPECT_TRUE(Contains(Errors("[emulator]\nsource = 'fanotify'\n[emulator.kernel]\ndirectories = ['/proc/1']\n"),
                       "4:15: emulator.kernel.directories: /proc/1 cannot be watched: is in a proc file system"));
}

TEST_F(CheckTrial, RulesThatNeverDecideAreWarnings) {
  EXPECT_EQ(Warnings("[[judging.rules]]\nname = 'all of srv'\npath = '/srv/**'\ndecision = 2\n"
                     "[[judging.rules]]\npath = '/srv/secret/*.key'\ndecision = 3\n"
                     "[[judging.rules]]\npath = '/srv?/x'\ndecision = 3\n"),
            "5:1: judging.rules[1]: warning: can never decide: rules[0] (\"all of srv\") comes first and matches all "
            "its events\n");
  EXPECT_EQ(Warnings("[[judging.rules]]\nevents = ['access']\ndecision = 2\n"
                     "[[judging.rules]]\npath = '*.key'\ndecision = 3\n"
                     "[[judging.rules]]\npath = '*.key'\nprocess = 'cat'\ndecision = 3\n"),
            "7:1: judging.rules[2]: warning: can never decide: rules[1] comes first and matches all its events\n");
}

TEST_F(CheckTrial, PatternsThatProbablyMatchSomethingElseAreWarnings) {
  EXPECT_EQ(Warnings("[[judging.rules]]\npath = '*.[ch'\ndecision = 3\n"),
            "2:8: judging.rules[0].path: warning: \"[\" in \"*.[ch\" stands for itself; patterns have only *, ** and "
            "?\n");
  EXPECT_EQ(Warnings("[[judging.rules]]\nprocess = '~/bin/x'\ndecision = 3\n"),
            "2:11: judging.rules[0].process: warning: \"~/bin/x\" never matches: \"~\" stands for itself; write the "
            "directory, or ${HOME}\n");
  EXPECT_EQ(Warnings("[[judging.rules]]\nprocess = 'bin/x'\ndecision = 3\n"),
            "2:11: judging.rules[0].process: warning: \"bin/x\" never matches: paths begin with \"/\"; write "
            "\"**/bin/x\" to match it anywhere\n");
  setup.Directory("real");
  fs::create_symlink("real", In("link"));
  EXPECT_EQ(Warnings("[[judging.rules]]\nprocess = '" + In("link") + "/x*'\ndecision = 3\n"),
            "2:11: judging.rules[0].process: warning: \"" + In("link") +
                "/x*\" leads through a symbolic link, and rules see the file itself; write \"" + In("real") +
                "/x*\"\n");
  EXPECT_EQ(Warnings("[[judging.rules]]\nprocess = '" + In("real") + "/x*'\ndecision = 3\n"), "");
}

TEST_F(CheckTrial, ProgramPathsThroughAMergedBinAreWarnings) {
  if (!fs::is_symlink("/bin")) GTEST_SKIP() << "skipped, because /bin is not a symbolic link here";
  EXPECT_EQ(Warnings("[[judging.rules]]\nprocess = '/bin/cat'\ndecision = 3\n"),
            "2:11: judging.rules[0].process: warning: \"/bin/cat\" leads through a symbolic link, and rules see the "
            "file itself; write \"/usr/bin/cat\"\n");
}

TEST_F(CheckTrial, FindingsAreJsonOnRequest) {
  file = setup.Write("host.toml", "");
  const Outcome outcome = setup.Run({"check", "--json", file});
  EXPECT_EQ(outcome.code, 0);
  EXPECT_EQ(outcome.err, "");
  EXPECT_EQ(JsonValue(outcome.out, "severity"), "warning");
  EXPECT_EQ(JsonValue(outcome.out, "line"), "1");
  EXPECT_EQ(JsonValue(outcome.out, "key"), "(file)");
}

}  // namespace
}  // namespace fenlux::testing
