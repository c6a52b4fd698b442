// Which directories of the policy the driver watches, and why not.
#pragma once

#include <boost/filesystem/path.hpp>
#include <vector>

#include "refhost/app/status/status_facts.h"

namespace fenlux::refhost {

std::vector<PolicyDirectory> PolicyDirectories(const std::vector<boost::filesystem::path>& policy,
                                               const SummaryFacts& facts);

}  // namespace fenlux::refhost
