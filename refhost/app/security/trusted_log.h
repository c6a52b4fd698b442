// Opening of the log file by a host that may be root's.
#pragma once

#include <boost/filesystem/path.hpp>

#include "refhost/services/log/log_file.h"

namespace fenlux::refhost {

// Opens the log file; null if `file` is empty. Refuses one that other users could change, unless `insecure`. Throws
// std::runtime_error.
LogFile OpenTrustedLog(const boost::filesystem::path& file, bool insecure);

}  // namespace fenlux::refhost
