// Maps decisions to the verdicts that the driver receives.
#pragma once

#include <cstdint>

#include "host/ao_arp.h"

namespace fenlux::refhost {

// Equals the module's mapping. `clientType2` is CCfgEx::GetClientTypeFlag. Assumes that decision 5 has context data.
std::uint32_t VerdictOfDecision(Decision decision, bool clientType2);

}  // namespace fenlux::refhost
