// Passes each table of the file to the service that reads it.
#include "refhost/app/host_config.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>
#include <string>
#include <string_view>
#include <vector>

#include "refhost/app/recording/capture_settings.h"
#include "refhost/base/config/config_reader.h"
#include "refhost/base/file_bytes.h"
#include "refhost/services/events/decision_verdicts.h"

namespace fenlux::refhost {
namespace {

ControlSettings ReadControlSettings(const ConfigTable& table) {
  ControlSettings settings;
  settings.enabled = table.Boolean("enabled", settings.enabled);
  settings.socket = table.Path("socket");
  return settings;
}

bool KernelEvents(const HostConfig& config) {
  return config.start.driver.port == DriverPortKind::kEmulator && config.emulator.source == EventSourceKind::kFanotify;
}

// nullopt if no decision leads to a verdict that refuses.
std::optional<Decision> RefusingDecision(const KernelEventSettings& kernel) {
  struct Row {
    Decision decision;
    records::Verdict verdict;
  };
  constexpr Row kDecisions[] = {{Decision::kVerdict4, records::Verdict::kVerdict4},
                                {Decision::kVerdict5, records::Verdict::kVerdict5},
                                {Decision::kUndecided, records::Verdict::kUnjudged},
                                {Decision::kVerdict2, records::Verdict::kVerdict2},
                                {Decision::kPassClient2, records::Verdict::kPassClient2}};
  const auto* const row = std::ranges::find_if(kDecisions, [&](const Row& candidate) {
    return std::ranges::find(kernel.refusingVerdicts, static_cast<std::uint32_t>(candidate.verdict)) !=
           kernel.refusingVerdicts.end();
  });
  return row == std::end(kDecisions) ? std::nullopt : std::optional(row->decision);
}

// Applies what rules that name programs require of the kernel source, or reports it.
void CheckProgramRules(const ConfigTable& emulator, const ProgramJudging& judging, HostConfig& config) {
  if (!judging.kernelEvents || !config.reloadable.rules.NameProcesses()) return;
  // A process keeps its id when it runs another program, so for a process that waits for a verdict, the cache may still
  // contain the program that it ran before.
  if (!config.reloadable.module.cacheBypassed) config.reloadable.module.cacheBypassed = true;
  if (judging.unknownProgram) return;
  emulator.Table("kernel").Report("refusing_verdicts",
                                  "must contain 2, 4, 5, 7 or 8 from the start of the host, because a rule names "
                                  "programs: an event whose program cannot be established is refused with one of them");
}

std::chrono::milliseconds ReadStopTimeout(const ConfigTable& root) {
  constexpr std::uint32_t kMax = 10 * 60 * 1000;
  return std::chrono::milliseconds(root.Unsigned("stop_timeout_ms",
                                                 static_cast<std::uint32_t>(kDefaultStopTimeout.count()),
                                                 static_cast<std::uint32_t>(kMinStopTimeout.count()), kMax));
}

HostConfig ReadHostConfig(const ConfigTable& root, ConfigErrors& errors,
                          const std::optional<ProgramJudging>& running = std::nullopt) {
  HostConfig config;
  config.start.stopAtEnd = root.Boolean("stop_at_end", false);
  config.start.stopTimeout = ReadStopTimeout(root);
  config.start.moduleLibrary = root.Table("module").Path("library");
  config.start.log = ReadLogSettings(root.Table("log"));
  config.start.module = ReadFixedSettings(root);
  config.start.control = ReadControlSettings(root.Table("control"));
  config.start.metrics = ReadMetricsSettings(root.Table("metrics"));
  config.start.driver = ReadDriverSettings(root.Table("driver"));
  config.start.recording = ReadCaptureSettings(root.Table("capture"));
  config.start.recording.stopTimeout = StopTimeouts(config.start.stopTimeout).recording;
  config.start.systemImages = ReadSystemImages(root.Table("system_images"));
  config.reloadable.module = ReadLiveSettings(root);
  config.reloadable.rules = ReadRules(root.Table("judging"));
  config.reloadable.translations = ReadTranslations(root.Table("translations"));
  const ConfigTable emulator = root.Table("emulator");
  config.emulator = ReadEmulatorSettings(emulator);
  if (config.start.driver.port != DriverPortKind::kEmulator && emulator.Present()) {
    emulator.Report("", "requires [driver] port = \"emulator\"");
  }
  CheckProgramRules(emulator, running.value_or(ProgramJudgingOf(config)), config);
  if (const boost::filesystem::path& scenario = config.emulator.scenarioFile; !scenario.empty()) {
    const std::string failure = WhyUnreadable(scenario);
    if (failure.empty()) {
      config.scenario = LoadScenario(scenario, errors);
    } else {
      emulator.Report("scenario", fmt::format("{} {}", scenario.string(), failure));
    }
  }
  root.Finish();
  return config;
}

// Settings that take effect on a reload: tables, or single keys.
constexpr std::string_view kLive[] = {"judging",
                                      "module.bypass_process_cache",
                                      "module.config_block",
                                      "module.config_block_file",
                                      "module.identity_text",
                                      "module.measure",
                                      "module.refresh_interval_ms",
                                      "policy",
                                      "spsp",
                                      "translations"};

bool IsLive(std::string_view key) {
  return std::ranges::any_of(kLive, [&](std::string_view live) {
    return key.substr(0, live.size()) == live && (key.size() == live.size() || key[live.size()] == '.');
  });
}

// Whether the file has a key of a scenario, and no table of a host's configuration.
bool IsScenario(const ConfigTable& root) {
  constexpr std::string_view kScenario[] = {"faults", "name", "repeat", "steps", "threads"};
  constexpr std::string_view kHost[] = {"capture",     "control",         "driver",        "emulator",    "judging",
                                        "log",         "metrics",         "module",        "policy",      "spsp",
                                        "stop_at_end", "stop_timeout_ms", "system_images", "translations"};
  const auto hasOneOf = [keys = root.Keys()](const auto& names) {
    return std::ranges::any_of(
        keys, [&](const std::string& key) { return std::ranges::find(names, key) != std::ranges::end(names); });
  };
  return hasOneOf(kScenario) && !hasOneOf(kHost);
}

}  // namespace

DecisionFlags RefusingDecisions(const HostConfig& config) {
  DecisionFlags refusing{};
  for (std::uint32_t number = kMinDecision; number <= kMaxDecision; ++number) {
    refusing[number] = config.emulator.kernel.Refuses(
        VerdictOfDecision(static_cast<Decision>(number), config.start.module.clientTypeFlag));
  }
  return refusing;
}

ProgramJudging ProgramJudgingOf(const HostConfig& config) {
  return {KernelEvents(config), KernelEvents(config) ? RefusingDecision(config.emulator.kernel) : std::nullopt};
}

ControlSettings LoadControlSettings(const boost::filesystem::path& file, ConfigErrors& errors) {
  const ConfigDocument document(file, errors);
  const ConfigTable table = document.Root().Table("control");
  ControlSettings settings = ReadControlSettings(table);
  if (document.Parsed() && !settings.enabled) {
    table.Report("enabled", "this host has no control socket; remove the setting and restart it, to use ctl");
  }
  return settings;
}

std::vector<std::string> ChangesThatNeedARestart(const ConfigContent& running, const HostConfig& reloaded,
                                                 const boost::filesystem::path& file) {
  std::vector<std::string> changes;
  for (const ConfigContent::Change& change : running.ChangesIn(reloaded.content)) {
    if (!IsLive(change.key)) {
      changes.push_back(fmt::format("{} ({}:{})", change.key, file.filename().string(), change.line));
    }
  }
  return changes;
}

HostConfig LoadHostConfig(const boost::filesystem::path& file, ConfigErrors& errors,
                          const std::optional<ProgramJudging>& running) {
  const ConfigDocument document(file, errors);
  HostConfig config = ReadHostConfig(document.Root(), errors, running);
  config.content = ConfigContent(document);
  return config;
}

void CheckFile(const boost::filesystem::path& file, ConfigErrors& errors, const HostCheck& alsoCheck) {
  const ConfigDocument document(file, errors);
  if (!document.Parsed()) return;
  if (IsScenario(document.Root())) {
    ReadScenario(document.Root());
  } else {
    const HostConfig config = ReadHostConfig(document.Root(), errors);
    if (alsoCheck && errors.Empty()) alsoCheck(document.Root(), config);
  }
}

}  // namespace fenlux::refhost
