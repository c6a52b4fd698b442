// The host's reports: what happened so far, and what the driver believes.
#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <optional>
#include <vector>

#include "refhost/base/report.h"
#include "refhost/emulator/emulator_state.h"
#include "refhost/emulator/emulator_totals.h"
#include "refhost/port/filter_port_client.h"
#include "refhost/services/configuration.h"
#include "refhost/services/events/judge.h"
#include "refhost/services/log/log_service.h"
#include "refhost/services/record_register.h"

namespace fenlux::refhost {

// Everything that a summary is made of.
struct SummaryFacts {
  std::chrono::milliseconds running{0};
  EmulatorTotals totals;
  EmulatorState driver;
  std::optional<FilterPortTotals> filterPort;  // of a real driver; then the emulated one stood idle
  EmulatorState believed;                      // what the driver was told, as it stood before the host began to stop
  std::array<std::uint64_t, kMostDecision + 1> decisions{};
  LogTotals log;
  DriverVersionReport version;
  std::uint64_t policyReads = 0;
  std::uint64_t policyReminders = 0;
  std::vector<RegisteredInterface> registered;
};

// Whether the driver was served as its protocol demands, and every notification is accounted for.
bool IsFine(const SummaryFacts& facts);

Report SummaryReport(const SummaryFacts& facts);
// What the driver was told over the present connection.
Report DriverReport(const EmulatorState& driver);

}  // namespace fenlux::refhost
