// Which directories the driver should watch, which of them it does not, and why.
#pragma once

#include <boost/filesystem/path.hpp>
#include <vector>

#include "refhost/app/status/status_facts.h"
#include "refhost/emulator/driver_emulator.h"

namespace fenlux::refhost {

// The directories of the policy. `watches` are those of the event source, sorted by directory.
std::vector<PolicyDirectory> PolicyDirectories(const std::vector<boost::filesystem::path>& policy,
                                               const SummaryFacts& facts, const std::vector<WatchState>& watches);

// The directories of the event source that the policy does not name.
std::vector<PolicyDirectory> OtherDirectories(const std::vector<PolicyDirectory>& policy,
                                              const std::vector<WatchState>& watches);

}  // namespace fenlux::refhost
