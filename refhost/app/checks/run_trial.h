// What would keep `run` from using a valid configuration on this machine.
#pragma once

#include <boost/filesystem/path.hpp>

namespace fenlux::refhost {

class ConfigTable;
struct HostConfig;

// Tries what a run begins with, without starting, creating or changing anything: the module's library, the files to
// write, the directories to watch, the control socket, the metrics' port, and, unless `insecure`, root's trust in the
// files. Reports what would end a run, and warns of what a run goes on without. `root` is the table that `config` was
// read from, without errors.
void TryRun(const ConfigTable& root, const HostConfig& config, bool insecure);

}  // namespace fenlux::refhost
