// Reading of whole files.
#pragma once

#include <boost/filesystem/path.hpp>
#include <optional>
#include <string>

namespace fenlux::refhost {

// The content of a file; nullopt if it cannot be read to its end or is a directory.
std::optional<std::string> ReadFileBytes(const boost::filesystem::path& file);

}  // namespace fenlux::refhost
