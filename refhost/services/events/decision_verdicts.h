// Which verdict the driver receives for a decision.
#pragma once

#include <cstdint>

#include "host/ao_arp.h"

namespace fenlux::refhost {

// The module's translation. `clientType2` is CCfgEx::GetClientTypeFlag. For decision 5: the verdict with context data.
std::uint32_t VerdictOfDecision(Decision decision, bool clientType2);

}  // namespace fenlux::refhost
