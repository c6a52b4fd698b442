// Passes each table of the file to the service that reads it.
#include "refhost/app/host_config.h"

#include <algorithm>
#include <string>
#include <string_view>

#include "refhost/base/config/config_reader.h"

namespace fenlux::refhost {
namespace {

ControlSettings ReadControlSettings(const ConfigTable& table) {
  ControlSettings settings;
  settings.enabled = table.Boolean("enabled", settings.enabled);
  settings.socket = table.Path("socket");
  return settings;
}

HostConfig ReadHostConfig(const ConfigTable& root, ConfigErrors& errors) {
  HostConfig config;
  config.start.stopAtEnd = root.Boolean("stop_at_end", false);
  config.start.moduleLibrary = root.Table("module").Path("library");
  config.start.log = ReadLogSettings(root.Table("log"));
  config.start.module = ReadFixedSettings(root);
  config.start.control = ReadControlSettings(root.Table("control"));
  config.start.driver = ReadDriverSettings(root.Table("driver"));
  config.start.systemImages = ReadSystemImages(root.Table("system_images"));
  config.reloadable.module = ReadLiveSettings(root);
  config.reloadable.rules = ReadRules(root.Table("judging"));
  config.reloadable.translations = ReadTranslations(root.Table("translations"));
  const ConfigTable emulator = root.Table("emulator");
  config.emulator = ReadEmulatorSettings(emulator);
  if (config.start.driver.port != DriverPortKind::kEmulator && emulator.Present()) {
    emulator.Report("", "requires [driver] port = \"emulator\"");
  }
  root.Finish();
  if (!config.emulator.scenarioFile.empty()) config.scenario = LoadScenario(config.emulator.scenarioFile, errors);
  return config;
}

// A file with any table of a host's configuration is not a scenario.
bool IsScenario(const ConfigTable& root) {
  constexpr std::string_view kTables[] = {"control", "driver", "emulator", "judging",       "log",
                                          "module",  "policy", "spsp",     "system_images", "translations"};
  const std::vector<std::string> keys = root.Keys();
  return !keys.empty() && std::ranges::none_of(keys, [&](const std::string& key) {
    return key == "stop_at_end" || std::ranges::find(kTables, key) != std::end(kTables);
  });
}

}  // namespace

HostConfig LoadHostConfig(const boost::filesystem::path& file, ConfigErrors& errors) {
  const ConfigDocument document(file, errors);
  return ReadHostConfig(document.Root(), errors);
}

void CheckFile(const boost::filesystem::path& file, ConfigErrors& errors) {
  const ConfigDocument document(file, errors);
  if (!document.Parsed()) return;
  if (IsScenario(document.Root())) {
    ReadScenario(document.Root());
  } else {
    ReadHostConfig(document.Root(), errors);
  }
}

}  // namespace fenlux::refhost
