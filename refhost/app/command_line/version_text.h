// The versions that --version shows.
#pragma once

#include <string>

namespace fenlux::refhost {

// The versions of the host, of the module interface that it can load, and of the module, and how it was built.
std::string VersionText();

}  // namespace fenlux::refhost
