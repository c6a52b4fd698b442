// Opens the log file of a host that may run as root.
#pragma once

#include <boost/filesystem/path.hpp>

#include "refhost/services/log/log_file.h"

namespace fenlux::refhost {

// Opens the log file; null if `file` is empty. Refuses one that other users could change, unless `insecure`. Throws
// std::runtime_error.
LogFile OpenTrustedLog(const boost::filesystem::path& file, bool insecure);

}  // namespace fenlux::refhost
