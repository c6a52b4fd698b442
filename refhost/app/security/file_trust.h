// Whether other users can change a file that decides what this process does.
#pragma once

#include <boost/filesystem/path.hpp>
#include <cstdio>
#include <string>

namespace fenlux::refhost {

// Why root must not use the file, and what to do about it; empty if root may. Every directory and symbolic link on the
// way must belong to root, or to the user who called sudo, and nobody else may write there, except in a sticky
// directory such as /tmp. A missing file is fine if its directories are. Always empty for other users than root, and on
// Windows.
std::string WhyUntrusted(const boost::filesystem::path& file);

// The same for a file that is already open.
std::string WhyUntrusted(const boost::filesystem::path& file, std::FILE* opened);

}  // namespace fenlux::refhost
