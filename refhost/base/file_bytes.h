// Reads whole files, and their sizes.
#pragma once

#include <boost/filesystem/path.hpp>
#include <cstdint>
#include <string>

namespace fenlux::refhost {

// The content of a file, or the reason why it cannot be read.
struct FileBytes {
  std::string bytes;
  std::string failure;  // "cannot be read: ", the system's reason and what to check; empty: success
};

// Reads a file to its end. On POSIX systems, reads only regular files, so that it never waits for a pipe or a device.
FileBytes ReadFileBytes(const boost::filesystem::path& file);

// Why the file cannot be read, as in FileBytes; empty if it can.
std::string WhyUnreadable(const boost::filesystem::path& file);

// The file's size; 0 if it cannot be determined, as for a pipe. For progress bars.
std::uint64_t FileSizeOrZero(const boost::filesystem::path& file);

}  // namespace fenlux::refhost
