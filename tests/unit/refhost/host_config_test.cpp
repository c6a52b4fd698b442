// Whole files: the settings they produce, and the errors a check finds.
#include "refhost/app/host_config.h"

#include <gtest/gtest.h>

#include "refhost/base/config/config_reader.h"
#include "tests/support/temporary_directory.h"

namespace fenlux::refhost {
namespace {

using fenlux::testing::TemporaryDirectory;

TEST(HostConfig, AnEmptyFileIsAHostWithoutEvents) {
  const TemporaryDirectory directory;
  ConfigErrors errors;
  const HostConfig config = LoadHostConfig(directory.Write("h.toml", ""), errors);
  EXPECT_EQ(errors.Text(), "");
  EXPECT_FALSE(config.start.stopAtEnd);
  EXPECT_EQ(config.start.stopTimeout, kDefaultStopTimeout);
  EXPECT_TRUE(config.start.control.enabled);
  EXPECT_TRUE(config.start.module.enabled);
  EXPECT_TRUE(config.scenario.steps.empty());
  EXPECT_FALSE(config.reloadable.module.monitoredObjects);
}

TEST(HostConfig, ReadsEveryTable) {
  const TemporaryDirectory directory;
  directory.Write("s.toml", "[[steps]]\nnotify = 4098\n");
  ConfigErrors errors;
  const HostConfig config =
      LoadHostConfig(directory.Write("h.toml",
                                     "stop_at_end = true\nstop_timeout_ms = 9000\n[emulator]\nscenario = "
                                     "'s.toml'\n[log]\nfile = 'l.log'\nconsole = 'off'\n"
                                     "[module]\nlibrary = 'm.so'\nport_value = 3\n[control]\nsocket = 'c.sock'\n"
                                     "[system_images]\n'system32\\csrss.exe' = 'csrss'\n[translations]\n'a' = 'b'\n"
                                     "[policy]\ndirectories = ['d']\n[judging]\ndefault_decision = 3\n"),
                     errors);
  EXPECT_EQ(errors.Text(), "");
  EXPECT_TRUE(config.start.stopAtEnd);
  EXPECT_EQ(config.start.stopTimeout, std::chrono::milliseconds(9000));
  EXPECT_EQ(config.start.recording.stopTimeout, std::chrono::milliseconds(3000));
  EXPECT_EQ(config.scenario.steps.size(), 1U);
  EXPECT_EQ(config.start.log.file, directory.Path() / "l.log");
  EXPECT_EQ(config.start.moduleLibrary, directory.Path() / "m.so");
  EXPECT_EQ(config.start.module.portValue, 3U);
  EXPECT_EQ(config.start.control.socket, directory.Path() / "c.sock");
  EXPECT_EQ(config.start.systemImages.at("system32\\csrss.exe"), directory.Path() / "csrss");
  EXPECT_EQ(config.reloadable.translations.at("a"), "b");
  EXPECT_EQ(config.reloadable.module.monitoredObjects->size(), 1U);
  EXPECT_EQ(config.reloadable.rules.defaultDecision, Decision::kVerdict4);
}

HostConfig Loaded(const std::string& text) {
  const TemporaryDirectory directory;
  ConfigErrors errors;
  HostConfig config = LoadHostConfig(directory.Write("h.toml", text), errors);
  EXPECT_EQ(errors.Text(), "");
  return config;
}

TEST(HostConfig, RulesThatNameProgramsBypassTheProcessCacheOnKernelEvents) {
  const std::string kernel = "[emulator]\nsource = 'fanotify'\n";
  const std::string rule = "[[judging.rules]]\nprocess = 'cat'\ndecision = 3\n";
  const auto bypassed = [](const std::string& text) {
    return Loaded(text).reloadable.module.cacheBypassed.value_or(false);
  };
  EXPECT_TRUE(bypassed(kernel + rule));
  EXPECT_FALSE(bypassed(kernel));
  EXPECT_FALSE(bypassed(rule));
  EXPECT_FALSE(bypassed(kernel + "[module]\nbypass_process_cache = false\n" + rule));
}

TEST(HostConfig, UnknownProgramsOfKernelEventsGetADecisionThatRefuses) {
  const auto decision = [](const std::string& text) { return ProgramJudgingOf(Loaded(text)).unknownProgram; };
  const std::string kernel = "[emulator]\nsource = 'fanotify'\n[emulator.kernel]\nrefusing_verdicts = ";
  EXPECT_EQ(decision(""), std::nullopt);
  EXPECT_EQ(decision("[emulator]\nsource = 'fanotify'\n"), Decision::kVerdict4);
  EXPECT_EQ(decision(kernel + "[5]\n"), Decision::kVerdict5);
  EXPECT_EQ(decision(kernel + "[8]\n"), Decision::kUndecided);
  EXPECT_EQ(decision(kernel + "[3]\n"), std::nullopt) << "decisions of that verdict let the operation pass";
}

std::string ErrorsOf(const std::string& text, const std::optional<ProgramJudging>& running = std::nullopt) {
  const TemporaryDirectory directory;
  const boost::filesystem::path file = directory.Write("h.toml", text);
  ConfigErrors errors;
  LoadHostConfig(file, errors, running);
  const std::string found = errors.Text();
  return found.empty() ? found : found.substr(file.string().size());
}

constexpr char kNoRefusal[] =
    ":4:21: emulator.kernel.refusing_verdicts: must contain 2, 4, 5, 7 or 8 from the start of the host, because a rule "
    "names programs: an event whose program cannot be established is refused with one of them\n";

TEST(HostConfig, RulesThatNameProgramsNeedAVerdictThatRefuses) {
  const std::string rule = "[[judging.rules]]\nprocess = 'cat'\ndecision = 3\n";
  const std::string kernel = "[emulator]\nsource = 'fanotify'\n[emulator.kernel]\nrefusing_verdicts = ";
  EXPECT_EQ(ErrorsOf(kernel + "[3]\n" + rule), kNoRefusal);
  EXPECT_EQ(ErrorsOf(kernel + "[]\n" + rule), kNoRefusal);
  EXPECT_EQ(ErrorsOf(kernel + "[3]\n"), "");
  EXPECT_EQ(ErrorsOf(kernel + "[3, 5]\n" + rule), "");
}

TEST(HostConfig, AReloadJudgesProgramsAsTheRunningSourceRequires) {
  const std::string rule = "[[judging.rules]]\nprocess = 'cat'\ndecision = 3\n";
  const auto bypassed = [&](const std::string& text, const ProgramJudging& running) {
    const TemporaryDirectory directory;
    ConfigErrors errors;
    const HostConfig config = LoadHostConfig(directory.Write("h.toml", text), errors, running);
    EXPECT_EQ(errors.Text(), "");
    return config.reloadable.module.cacheBypassed.value_or(false);
  };
  EXPECT_TRUE(bypassed("[emulator]\nsource = 'scripted'\n" + rule, {true, Decision::kVerdict4}));
  EXPECT_FALSE(bypassed("[emulator]\nsource = 'fanotify'\n" + rule, {false, std::nullopt}));
  // The running source refuses none of the verdicts that the judge can give.
  EXPECT_EQ(ErrorsOf("[emulator]\nsource = 'fanotify'\n[emulator.kernel]\nrefusing_verdicts = [4]\n" + rule,
                     ProgramJudging{true, std::nullopt}),
            kNoRefusal);
}

TEST(HostConfig, ReadsTheCaptureTable) {
  const TemporaryDirectory directory;
  ConfigErrors errors;
  const HostConfig config = LoadHostConfig(
      directory.Write(
          "h.toml", "[capture]\nfile = 'p.pcapng'\nfile_size_mb = 2\nfiles = 3\nqueue_mb = 4\nkinds = ['requests']\n"),
      errors);
  EXPECT_EQ(errors.Text(), "");
  const capture::RecordingSettings& recording = config.start.recording;
  EXPECT_EQ(recording.file, directory.Path() / "p.pcapng");
  EXPECT_EQ(recording.maxFileSize, 2U << 20);
  EXPECT_EQ(recording.maxFiles, 3U);
  EXPECT_EQ(recording.queueSize, 4U << 20);
  EXPECT_TRUE(recording.kinds.requests);
  EXPECT_FALSE(recording.kinds.notifications || recording.kinds.judgements || recording.kinds.facts);
}

TEST(HostConfig, ACheckReportsErrorsOfTheConfigurationAndOfItsScenario) {
  const TemporaryDirectory directory;
  const std::string scenario = directory.Write("s.toml", "[[steps]]\nnotify = 'x'\n").string();
  const std::string host =
      directory
          .Write("h.toml",
                 "unknown = 1\n[emulator]\nscenario = 's.toml'\n[log]\nconsole = 'loud'\n[module]\nport = 1\n")
          .string();
  ConfigErrors errors;
  CheckFile(host, errors);
  EXPECT_EQ(errors.Text(), host + ":1:1: unknown: is not a known key\n" + host +
                               ":5:11: log.console: must be one of detail, event, notice, warning, problem, alert, "
                               "off, not \"loud\"\n" +
                               host + ":7:1: module.port: is not a known key; did you mean \"port_value\"?\n" +
                               scenario + ":2:10: steps[0].notify: must be an integer\n");
}

TEST(HostConfig, ACheckRecognizesAScenarioByItsKeys) {
  const TemporaryDirectory directory;
  ConfigErrors errors;
  CheckFile(directory.Write("good.toml", "[[steps]]\npause_ms = 1\n"), errors);
  EXPECT_EQ(errors.Text(), "");
  const std::string bad = directory.Write("bad.toml", "[[steps]]\npause = 1\n").string();
  CheckFile(bad, errors);
  EXPECT_NE(errors.Text().find(bad + ":2:1: steps[0].pause: is not a known key; did you mean \"pause_ms\"?\n"),
            std::string::npos)
      << errors.Text();
}

}  // namespace
}  // namespace fenlux::refhost
