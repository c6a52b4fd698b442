// Whether other users can change a file that decides what this process does.
#pragma once

#include <boost/filesystem/path.hpp>
#include <cstdio>
#include <string>

namespace fenlux::refhost {

// Why root must not use the file, and what to do about it; empty if root may. Every directory and symbolic link in its
// path must belong to root, or to the user who called sudo, and nobody else may write there, except in a sticky
// directory such as /tmp. A missing file is acceptable if its directories are. Always empty for users other than root,
// and on Windows.
std::string WhyUntrusted(const boost::filesystem::path& file);

// Does the same for a file that is already open, but checks only the file itself.
std::string WhyUntrusted(const boost::filesystem::path& file, std::FILE* opened);

}  // namespace fenlux::refhost
