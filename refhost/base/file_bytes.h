// Reading of whole files.
#pragma once

#include <boost/filesystem/path.hpp>
#include <string>

namespace fenlux::refhost {

// The content of a file, or the reason why there is none.
struct FileBytes {
  std::string bytes;
  std::string failure;  // "cannot be read: ", the system's reason and what to check; empty: success
};

// Reads a file to its end. Never waits for a pipe or a device: only regular files can be read (POSIX).
FileBytes ReadFileBytes(const boost::filesystem::path& file);

// Why the file cannot be read, as in FileBytes; empty if it can.
std::string WhyUnreadable(const boost::filesystem::path& file);

}  // namespace fenlux::refhost
