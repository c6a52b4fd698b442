// The host's state as metrics in Prometheus's text format. Linux only.
#pragma once

#include <string>

#include "refhost/app/status/status_facts.h"

namespace fenlux::refhost {

// Throws std::runtime_error where there are no metrics (see MetricsExist).
std::string MetricsText(const StatusFacts& facts);

}  // namespace fenlux::refhost
