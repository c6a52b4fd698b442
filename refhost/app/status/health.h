// Whether a running host works as it should, for monitoring scripts.
#pragma once

#include <string>
#include <vector>

#include "refhost/app/status/status_facts.h"
#include "refhost/base/report.h"

namespace fenlux::refhost {

// What is wrong; empty if the host is healthy. Lost lines and unjudged operations count for ten minutes.
std::vector<std::string> HealthProblems(const StatusFacts& facts);

// {"health": "healthy"} or {"health": "degraded", "problems": [...]}.
Report HealthReport(const StatusFacts& facts);

// The report as one line: "healthy", "degraded: ...", "not reachable: ...". Ends with a line feed.
std::string HealthText(const Report& report);

// The exit code for the report.
int HealthExitCode(const Report& report);

// The report for a host that cannot be reached, for `reason`.
Report UnreachableReport(const std::string& reason);

}  // namespace fenlux::refhost
