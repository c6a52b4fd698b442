// One function for each resource that a run needs at its start.
#include "refhost/app/checks/run_trial.h"

#include <fmt/format.h>

#include <boost/filesystem/operations.hpp>
#include <stdexcept>
#include <string>

#include "refhost/app/checks/rule_warnings.h"
#include "refhost/app/checks/system_facts.h"
#include "refhost/app/control/control_channel.h"
#include "refhost/app/host_config.h"
#include "refhost/app/metrics/metrics_server.h"
#include "refhost/app/platform/module_loader.h"
#include "refhost/app/security/file_trust.h"
#include "refhost/base/config/config_reader.h"
#include "refhost/services/log/log_file.h"

namespace fenlux::refhost {
namespace {

namespace fs = boost::filesystem;

bool Exists(const fs::path& path) {
  boost::system::error_code ignored;
  return fs::exists(path, ignored);
}

bool IsDirectory(const fs::path& path) {
  boost::system::error_code ignored;
  return fs::is_directory(path, ignored);
}

// Whether root may use the file. Reports the reason if not.
bool IsTrusted(const ConfigTable& table, std::string_view key, const fs::path& file, bool insecure) {
  const std::string reason = file.empty() || insecure ? std::string() : WhyUntrusted(file);
  if (!reason.empty()) table.Report(key, reason);
  return reason.empty();
}

void TryModule(const ConfigTable& module, const HostConfig& config, bool insecure) {
  const fs::path& configured = config.start.moduleLibrary;
  const fs::path library = configured.empty() ? DefaultModuleLibrary() : configured;
  if (!IsTrusted(module, "library", library, insecure)) return;
  try {
    const ModuleLibrary loaded(library);
  } catch (const ModuleLoadError& error) {
    module.Report("library", error.what());
  }
}

// Checks that a run can create the file and, if `withDirectories`, its missing directories.
void TryNewFile(const ConfigTable& table, const fs::path& file, bool withDirectories) {
  fs::path directory = fs::absolute(file).parent_path();
  while (withDirectories && !Exists(directory) && directory.has_parent_path()) directory = directory.parent_path();
  const std::string reason = WhyNotWritable(directory);
  if (reason.empty()) return;
  table.Report("file", fmt::format("{} cannot be created in {}: {}", file.string(), directory.string(), reason));
}

void TryLog(const ConfigTable& log, const HostConfig& config, bool insecure) {
  const fs::path& file = config.start.log.file;
  if (file.empty() || !IsTrusted(log, "file", file, insecure)) return;
  if (!Exists(file)) return TryNewFile(log, file, /*withDirectories=*/true);
  try {
    OpenForAppending(file);
  } catch (const std::runtime_error& error) {
    log.Report("file", error.what());
  }
}

void TryCapture(const ConfigTable& capture, const HostConfig& config) {
  const fs::path& file = config.start.recording.file;
  if (file.empty()) return;
  if (IsDirectory(file)) {
    capture.Report("file", file.string() + " is a directory; name a file");
  } else {
    TryNewFile(capture, file, /*withDirectories=*/false);
  }
}

void TryControl(const ConfigTable& control, const HostConfig& config) {
  const ControlSettings& settings = config.start.control;
  if (!settings.enabled || settings.socket.empty()) return;
  const std::string reason = WhyNoListener(settings.socket);
  if (!reason.empty()) control.Report("socket", reason);
}

// Opens and closes the port. A port in use is not an error: a host that runs with this file may be using it.
void TryMetrics(const ConfigTable& metrics, const HostConfig& config) {
  if (config.start.metrics.address.empty()) return;
  try {
    const MetricsServer server(config.start.metrics);
  } catch (const MetricsPortTaken& error) {
    metrics.Warn("listen", std::string(error.what()) + ", unless it is this host that uses the port");
  } catch (const std::runtime_error& error) {
    metrics.Report("listen", error.what());
  }
}

bool KernelEvents(const HostConfig& config) {
  return config.start.driver.port == DriverPortKind::kEmulator && config.emulator.source == EventSourceKind::kFanotify;
}

// Only warns: the module skips anything that is not a directory, the host skips what cannot be watched.
void TryPolicy(const ConfigTable& policy, const HostConfig& config) {
  if (!config.reloadable.module.monitoredObjects) return;
  for (const fs::path& directory : *config.reloadable.module.monitoredObjects) {
    if (!Exists(directory)) {
      policy.Warn("directories", directory.string() + " does not exist; it is skipped until it does");
    } else if (!IsDirectory(directory)) {
      policy.Warn("directories", directory.string() + " is not a directory and is skipped; name its directory");
    } else if (const std::string reason = KernelEvents(config) ? WhyNotWatchable(directory) : std::string();
               !reason.empty()) {
      policy.Warn("directories", fmt::format("{} cannot be watched: {}", directory.string(), reason));
    }
  }
}

void TryKernelEvents(const ConfigTable& emulator, const HostConfig& config) {
  if (!KernelEvents(config)) return;
  if (const std::string reason = WhyNoKernelEvents(); !reason.empty()) emulator.Warn("source", reason);
  const ConfigTable kernel = emulator.Table("kernel");
  for (const std::string& directory : config.emulator.kernel.directories) {
    const std::string reason = WhyNotWatchable(directory);
    if (!reason.empty()) kernel.Report("directories", fmt::format("{} cannot be watched: {}", directory, reason));
  }
}

}  // namespace

void TryRun(const ConfigTable& root, const HostConfig& config, bool insecure) {
  if (root.Keys().empty()) {
    root.Warn("", "is empty: the host runs with an emulated driver without events, and refuses nothing");
  }
  IsTrusted(root, "", root.File(), insecure);
  IsTrusted(root.Table("emulator"), "scenario", config.emulator.scenarioFile, insecure);
  IsTrusted(root.Table("module"), "config_block_file", config.reloadable.module.configBlockFile, insecure);
  TryModule(root.Table("module"), config, insecure);
  TryLog(root.Table("log"), config, insecure);
  TryCapture(root.Table("capture"), config);
  TryControl(root.Table("control"), config);
  TryMetrics(root.Table("metrics"), config);
  TryPolicy(root.Table("policy"), config);
  TryKernelEvents(root.Table("emulator"), config);
  WarnAboutRules(root.Table("judging"), config.reloadable.rules, KernelEvents(config));
}

}  // namespace fenlux::refhost
