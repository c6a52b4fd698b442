// Reloads the configuration and reopens the log file.
#include <fmt/format.h>
#include <fmt/ranges.h>

#include <nlohmann/json.hpp>
#include <sstream>
#include <stdexcept>
#include <utility>

#include "refhost/app/decisions/decision_log.h"
#include "refhost/app/recording/host_facts.h"
#include "refhost/app/recording/port_recording.h"
#include "refhost/app/reference_host.h"
#include "refhost/app/security/file_trust.h"
#include "refhost/app/security/trusted_log.h"
#include "refhost/base/config/config_reader.h"
#include "refhost/emulator/driver_emulator.h"

namespace fenlux::refhost {
namespace {

// Notifies the observer when a reload begins and when it ends, even if the reload throws.
class ReloadNotice {
 public:
  explicit ReloadNotice(const std::function<void(bool begins)>& reloadObserver) : observer(reloadObserver) {
    if (observer) observer(true);
  }
  ~ReloadNotice() {
    if (observer) observer(false);
  }
  ReloadNotice(const ReloadNotice&) = delete;
  ReloadNotice& operator=(const ReloadNotice&) = delete;

 private:
  const std::function<void(bool begins)>& observer;
};

}  // namespace

ReloadResult ReferenceHost::Reload() {
  const MutexLock lock(reloadMutex);
  const ReloadNotice notice(reloadObserver);
  ReopenLog();
  return ReadAgain();
}

void ReferenceHost::ReopenLog() {
  if (start.log.file.empty()) return;
  try {
    log->SwitchFile(OpenTrustedLog(start.log.file, start.insecurePermissions));
  } catch (const std::runtime_error& error) {
    log->Write(Severity::kProblem, std::string("[host] still logging to the old file: ") + error.what());
  }
}

ReloadResult ReferenceHost::ReadAgain() {
  ConfigErrors errors;
  HostConfig config = LoadHostConfig(configFile, errors, programJudging);
  for (const boost::filesystem::path& file : {configFile, config.reloadable.module.configBlockFile}) {
    const std::string untrusted = start.insecurePermissions || file.empty() ? std::string() : WhyUntrusted(file);
    if (!untrusted.empty()) errors.Add({file.string(), 1, 1, "(file)", untrusted});
  }
  if (!errors.Empty()) {
    ++refusedReloads;
    lastReloadRefused = true;
    LogLines(Severity::kProblem, "[host] configuration not reloaded: ", errors.Text());
    return {errors.Text(), {}};
  }
  std::vector<std::string> waiting = ChangesThatNeedARestart(startContent, config, configFile);
  if (!waiting.empty()) {
    log->Write(Severity::kWarning, fmt::format("[host] some changed settings take effect only after a restart: {}",
                                               fmt::join(waiting, ", ")));
  }
  recording->SetFacts(HostFacts(start.module, config.reloadable.module, *work));
  configuration->Replace(std::move(config.reloadable.module));
  decisions->Attach(decisionLog, config.reloadable.rules.logged);
  emulator->EnforceRefusals(config.reloadable.rules.enforced);
  judge->Replace(std::move(config.reloadable.rules));
  locale->Replace(std::move(config.reloadable.translations));
  ++reloads;
  lastReloadRefused = false;
  configurationLoaded = std::chrono::system_clock::now().time_since_epoch();
  log->Write(Severity::kEvent, "[host] configuration reloaded");
  if (Module() != nullptr) NotifyPolicyChanged();
  return {{}, std::move(waiting)};
}

void ReferenceHost::LogLines(Severity severity, const std::string& prefix, const std::string& lines) {
  std::istringstream stream(lines);
  for (std::string line; std::getline(stream, line);) log->Write(severity, prefix + line);
}

}  // namespace fenlux::refhost
