// Reads the [emulator] table and reports values that are out of range or unknown.
#include "refhost/emulator/emulator_settings.h"

#include <fmt/format.h>

#include "refhost/base/config/config_limits.h"
#include "refhost/base/config/config_reader.h"
#include "refhost/base/text/similar_words.h"

namespace fenlux::refhost {
namespace {

struct KernelEventName {
  std::string_view name;
  bool KernelEventSettings::*setting;
};
constexpr KernelEventName kKernelEvents[] = {
    {"open", &KernelEventSettings::onOpen},
    {"access", &KernelEventSettings::onAccess},
    {"exec", &KernelEventSettings::onExec},
};

std::chrono::milliseconds Milliseconds(const ConfigTable& table, std::string_view key,
                                       std::chrono::milliseconds defaultValue, std::uint32_t min) {
  return std::chrono::milliseconds(
      table.Unsigned(key, static_cast<std::uint32_t>(defaultValue.count()), min, kMaxMilliseconds));
}

void ReadEvents(const ConfigTable& table, KernelEventSettings& settings) {
  if (!table.Has("events")) return;
  for (const KernelEventName& event : kKernelEvents) settings.*event.setting = false;
  const std::vector<std::string> names = table.Texts("events");
  for (const std::string& name : names) {
    bool known = false;
    for (const KernelEventName& event : kKernelEvents) {
      if (event.name != name) continue;
      settings.*event.setting = true;
      known = true;
    }
    if (known) continue;
    const std::vector<std::string_view> events{"open", "access", "exec"};
    table.Report("events", fmt::format("unknown event \"{}\"; the events are open, access and exec{}", name,
                                       DidYouMean(name, events)));
  }
  if (names.empty()) table.Report("events", "names no event; the events are open, access and exec");
}

KernelEventSettings ReadKernelEventSettings(const ConfigTable& table) {
  KernelEventSettings settings;
  settings.followPolicy = table.Boolean("follow_policy", settings.followPolicy);
  for (const auto& directory : table.Paths("directories")) settings.directories.push_back(directory.string());
  settings.recursive = table.Boolean("recursive", settings.recursive);
  ReadEvents(table, settings);
  settings.threads = table.Unsigned("threads", settings.threads, 1, kMaxThreads);
  if (table.Has("refusing_verdicts")) {
    settings.refusingVerdicts.clear();
    for (const std::int64_t verdict : table.Integers("refusing_verdicts", records::kMinVerdict, records::kMaxVerdict)) {
      settings.refusingVerdicts.push_back(static_cast<std::uint32_t>(verdict));
    }
  }
  return settings;
}

}  // namespace

EmulatorSettings ReadEmulatorSettings(const ConfigTable& table) {
  EmulatorSettings settings;
  settings.source = table.Choice("source", settings.source,
                                 ConfigChoices<EventSourceKind>{{"scripted", EventSourceKind::kScripted},
                                                                {"fanotify", EventSourceKind::kFanotify}});
  settings.scenarioFile = table.Path("scenario");
  if (settings.source == EventSourceKind::kFanotify && !settings.scenarioFile.empty()) {
    table.Report("scenario", "requires source = \"scripted\"; kernel events have no scenario");
  }
  settings.driverVersion = table.Unsigned("driver_version", settings.driverVersion);
  settings.deadline = Milliseconds(table, "deadline_ms", settings.deadline, 1);
  settings.stopGrace = Milliseconds(table, "stop_grace_ms", settings.stopGrace, 0);
  settings.unjudged = table.Choice(
      "unjudged", settings.unjudged,
      ConfigChoices<UnjudgedPolicy>{{"allow", UnjudgedPolicy::kAllow}, {"refuse", UnjudgedPolicy::kRefuse}});
  settings.faults = ReadEmulatorFaults(table.Table("faults"));
  settings.kernel = ReadKernelEventSettings(table.Table("kernel"));
  return settings;
}

}  // namespace fenlux::refhost
