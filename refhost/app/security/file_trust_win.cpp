// Left to access control lists on Windows: no user there may write everywhere, as root may.
#include "refhost/app/security/file_trust.h"

namespace fenlux::refhost {

std::string WhyUntrusted(const boost::filesystem::path& /*file*/) { return {}; }
std::string WhyUntrusted(const boost::filesystem::path& /*file*/, std::FILE* /*opened*/) { return {}; }

}  // namespace fenlux::refhost
