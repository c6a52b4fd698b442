// What a configuration meets on this machine. The bodies are platform-specific.
#pragma once

#include <boost/filesystem/path.hpp>
#include <string>

namespace fenlux::refhost {

// Whether the paths of this machine's files begin with a slash.
bool HasUnixPaths();

// The pattern with the symbolic links of its directories replaced by what they lead to; empty if it has none, or begins
// with a wildcard.
std::string WithLinksResolved(const std::string& pattern);

// Why a file cannot be created in the directory; empty if it can.
std::string WhyNotWritable(const boost::filesystem::path& directory);

// Why the kernel's events of this directory cannot be received, whoever asks; empty if they can.
std::string WhyNotWatchable(const boost::filesystem::path& directory);

// Why this user cannot receive kernel events; empty if they can.
std::string WhyNoKernelEvents();

}  // namespace fenlux::refhost
