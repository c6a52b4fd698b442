// What a host shows of itself: the facts for its summary and for the views of its state.
#include <boost/filesystem/operations.hpp>
#include <utility>

#include "core/fenlux.h"
#include "fenlux/version.h"
#include "refhost/app/decisions/decision_log.h"
#include "refhost/app/recording/port_recording.h"
#include "refhost/app/reference_host.h"
#include "refhost/app/status/policy_directories.h"
#include "refhost/base/platform/own_process.h"
#include "refhost/emulator/driver_emulator.h"

namespace fenlux::refhost {
namespace {

// Operations not judged because of load: those that the setting `unjudged` covers, and those lost to full queues.
std::uint64_t UnjudgedByLoad(const EmulatorTotals& totals) {
  std::uint64_t sum = 0;
  for (std::size_t index = 0; index < kUnjudgedCauses; ++index) {
    const auto cause = static_cast<UnjudgedCause>(index);
    const bool followsSetting =
        IsRefusedUnjudged(cause, UnjudgedPolicy::kRefuse) && !IsRefusedUnjudged(cause, UnjudgedPolicy::kAllow);
    if (followsSetting || cause == UnjudgedCause::kQueueOverflow) sum += totals.unjudged[index];
  }
  return sum;
}

}  // namespace

SummaryFacts ReferenceHost::Facts() const {
  SummaryFacts facts;
  facts.running = std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - startTime);
  facts.totals = emulator->Totals();
  facts.unjudgedPolicy = unjudgedPolicy;
  // Counted by the judge, which refuses these operations by a decision.
  facts.totals.unjudged[static_cast<std::size_t>(UnjudgedCause::kProgramNotEstablished)] = judge->UnknownPrograms();
  facts.moduleEnabled = start.module.enabled;
  facts.driver = emulator->State();
  if (filterPort != nullptr) facts.filterPort = filterPort->Totals();
  facts.stateBeforeStop = facts.driver;
  facts.decisions = judge->Decisions();
  facts.notEnforced = judge->NotEnforced();
  facts.rules = judge->InForce();
  facts.notOnConsole = decisionLog->NotOnConsole();
  facts.log = log->Totals();
  facts.version = configuration->LastDriverVersion();
  facts.policyReads = configuration->PolicyReads();
  facts.policyNotifications = policyNotifications.load();
  facts.registered = records->Registered();
  facts.recording = recording->Status();
  return facts;
}

StatusFacts ReferenceHost::Status() const {
  StatusFacts facts;
  facts.summary = Facts();
  facts.processId = OwnProcessId();
  facts.moduleVersion = start.module.versionFlag ? kModuleVersion + 1 : kModuleVersion;
  facts.moduleLibrary = ModuleFile();
  facts.started = started;
  facts.configuration = boost::filesystem::absolute(configFile);
  facts.configurationLoaded = std::chrono::system_clock::time_point(configurationLoaded.load());
  facts.reloads = reloads.load();
  facts.refusedReloads = refusedReloads.load();
  facts.lastReloadRefused = lastReloadRefused.load();
  facts.ready = Module() != nullptr && Module()->GetDriverInteract() != nullptr;
  const std::optional<std::vector<boost::filesystem::path>> directories = configuration->MonitoredDirectories();
  facts.hasPolicy = directories.has_value();
  const std::vector<WatchState> watches = emulator->Watches();
  if (directories) facts.policy = PolicyDirectories(*directories, facts.summary, watches);
  facts.otherDirectories = OtherDirectories(facts.policy, watches);
  facts.logQueueLines = start.log.queueLines;
  facts.heldNetObjects = net->Totals().held;
  facts.cachedProcesses = work->CachedProcesses();
  const HistoryCounts counts = CountsForHistory(facts.summary.totals, facts.summary.log);
  facts.latencies = counts.latencies;
  const auto now = HostHistory::Clock::now();
  for (std::size_t index = 0; index < kHistoryPeriods.size(); ++index) {
    facts.history[index] = history.Window(now, kHistoryPeriods[index].length, counts, emulator->MaxLatency(false));
  }
  return facts;
}

HistoryCounts ReferenceHost::CountsForHistory(const EmulatorTotals& totals, const LogTotals& lines) const {
  return {emulator->Latencies(), lines.dropped, UnjudgedByLoad(totals)};
}

void ReferenceHost::KeepHistory() {
  const auto now = HostHistory::Clock::now();
  if (!history.IsDue(now)) return;
  events->EndIfIdle(now);
  history.Add(now, CountsForHistory(emulator->Totals(), log->Totals()), emulator->MaxLatency(true));
}

}  // namespace fenlux::refhost
