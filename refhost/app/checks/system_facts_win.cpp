// Windows hosts have no kernel events of this kind, and rules see other paths.
#include "refhost/app/checks/system_facts.h"

namespace fenlux::refhost {

bool HasUnixPaths() { return false; }
std::string WithLinksResolved(const std::string& /*pattern*/) { return {}; }
std::string WhyNotWritable(const boost::filesystem::path& /*directory*/) { return {}; }
std::string WhyNotWatchable(const boost::filesystem::path& /*directory*/) { return {}; }
std::string WhyNoKernelEvents() { return "needs Linux"; }

}  // namespace fenlux::refhost
