// Facts about this machine that a configuration depends on. The implementations are platform-specific.
#pragma once

#include <boost/filesystem/path.hpp>
#include <string>

namespace fenlux::refhost {

// Whether the paths of this machine's files begin with a slash.
bool HasUnixPaths();

// The pattern with the symbolic links in its directories replaced by their targets; empty if there are none, or if the
// pattern begins with a wildcard.
std::string WithLinksResolved(const std::string& pattern);

// Why a file cannot be created in the directory; empty if it can.
std::string WhyNotWritable(const boost::filesystem::path& directory);

// Why no user can receive the kernel's events for this directory; empty if they can be received.
std::string WhyNotWatchable(const boost::filesystem::path& directory);

// Why this user cannot receive kernel events; empty if the user can.
std::string WhyNoKernelEvents();

}  // namespace fenlux::refhost
