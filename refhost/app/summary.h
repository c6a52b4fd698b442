// The host's reports: its counts so far, and the driver's state.
#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "refhost/base/report.h"
#include "refhost/capture/recording_port_client.h"
#include "refhost/emulator/emulator_state.h"
#include "refhost/emulator/emulator_totals.h"
#include "refhost/port/filter_port_client.h"
#include "refhost/services/configuration.h"
#include "refhost/services/events/judge.h"
#include "refhost/services/log/log_service.h"
#include "refhost/services/record_register.h"

namespace fenlux::refhost {

// Everything a summary shows.
struct SummaryFacts {
  std::chrono::milliseconds running{0};
  EmulatorTotals totals;
  UnjudgedPolicy unjudgedPolicy = UnjudgedPolicy::kAllow;
  bool moduleEnabled = true;
  EmulatorState driver;
  std::optional<FilterPortTotals> filterPort;  // if a real driver is used; the emulated one is idle then
  EmulatorState stateBeforeStop;               // what the driver had received before the host began to stop
  DecisionCounts decisions{};
  std::uint64_t notEnforced = 0;              // of the decisions
  std::shared_ptr<const RulesInForce> rules;  // null: not shown
  LogTotals log;
  std::uint64_t notOnConsole = 0;  // records of decisions that the console did not show
  DriverVersionReport version;
  std::uint64_t policyReads = 0;
  std::uint64_t policyNotifications = 0;
  std::vector<RegisteredInterface> registered;
  capture::RecordingStatus recording;
};

// Protocol violations, and notifications that are not accounted for; empty if there are none.
std::vector<std::string> TotalsProblems(const SummaryFacts& facts);
// Whether the module should have connected to its driver and never did.
bool NeverConnected(const SummaryFacts& facts);
// Whether the driver connected if it should have, and TotalsProblems is empty.
bool IsFine(const SummaryFacts& facts);

Report SummaryReport(const SummaryFacts& facts);
// Counts of operations without a judgement by cause; causes that did not occur are left out.
Report UnjudgedReport(const EmulatorTotals& totals);
// What the driver received over the current connection.
Report DriverReport(const EmulatorState& driver);

}  // namespace fenlux::refhost
