// The versions that --version shows.
#pragma once

#include <string>

namespace fenlux::refhost {

// The host's version, the interface of the modules that it can load, the module's own version, and how it was built.
std::string VersionText();

}  // namespace fenlux::refhost
