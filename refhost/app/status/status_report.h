// The report of `ctl status`.
#pragma once

#include <chrono>
#include <string>

#include "refhost/app/status/status_facts.h"
#include "refhost/base/report.h"

namespace fenlux::refhost {

Report StatusReport(const StatusFacts& facts);

// UTC, as in 2026-01-31T23:59:59Z.
std::string TimeText(std::chrono::system_clock::time_point time);

}  // namespace fenlux::refhost
