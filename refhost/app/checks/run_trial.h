// Finds what would keep `run` from using a valid configuration on this machine.
#pragma once

#include <boost/filesystem/path.hpp>

namespace fenlux::refhost {

class ConfigTable;
struct HostConfig;

// Tries the first steps of a run without starting, creating or changing anything: the module's library, the files to
// write, the directories to watch, the control socket, the metrics port, and, unless `insecure`, whether root may trust
// the files. Reports errors for what would end a run, and warnings for what a run can do without. `root` is the table
// that `config` was read from, without errors.
void TryRun(const ConfigTable& root, const HostConfig& config, bool insecure);

}  // namespace fenlux::refhost
