// Paths and strings of a configuration file that refer to variables or to the file's directory.
#pragma once

#include <boost/filesystem/path.hpp>
#include <string>
#include <string_view>

namespace fenlux::refhost {

// The result of ExpandVariables: either the text, or the reason for the failure.
struct Expansion {
  std::string text;
  std::string failure;  // empty: success
};

// Replaces each "${NAME}" with the environment variable NAME, and FENLUX_HOST_PROGRAM with the running program's path.
// Fails if a variable is not set or a brace is missing.
Expansion ExpandVariables(std::string_view text);

// Returns an absolute path unchanged. Resolves and normalizes others relative to the directory of `file`; a path that
// starts at a root without a drive gets the drive of `file`.
boost::filesystem::path ResolvePath(const boost::filesystem::path& path, const boost::filesystem::path& file);

}  // namespace fenlux::refhost
