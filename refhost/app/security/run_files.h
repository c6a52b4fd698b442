// Whether root may use the files that a host depends on.
#pragma once

#include <boost/filesystem/path.hpp>
#include <string>

namespace fenlux::refhost {

struct HostConfig;

// Why root must not use the configuration `file`, one of the files that it names, or the module; empty if it may. An
// empty `module` means the configured one, or the default. See WhyUntrusted.
std::string UntrustedFile(const boost::filesystem::path& file, const boost::filesystem::path& module,
                          const HostConfig& config);

}  // namespace fenlux::refhost
