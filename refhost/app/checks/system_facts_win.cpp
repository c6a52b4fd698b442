// Windows has no kernel events of this kind, and its paths look different.
#include "refhost/app/checks/system_facts.h"

namespace fenlux::refhost {

bool HasUnixPaths() { return false; }
std::string WithLinksResolved(const std::string& /*pattern*/) { return {}; }
std::string WhyNotWritable(const boost::filesystem::path& /*directory*/) { return {}; }
std::string WhyNotWatchable(const boost::filesystem::path& /*directory*/) { return {}; }
std::string WhyNoKernelEvents() { return "needs Linux"; }

}  // namespace fenlux::refhost
