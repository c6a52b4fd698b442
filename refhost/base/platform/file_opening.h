// Opens files for reading.
#pragma once

#include <boost/filesystem/path.hpp>
#include <cstdio>
#include <memory>
#include <string>

namespace fenlux::refhost {

// A file, or why it cannot be read.
struct OpenedFile {
  std::unique_ptr<std::FILE, int (*)(std::FILE*)> stream;  // null: see `reason`
  std::string reason;
};

// Opens the file for reading. On POSIX systems, refuses named pipes and devices, which could block the caller. Any
// thread.
OpenedFile OpenForReading(const boost::filesystem::path& file);

}  // namespace fenlux::refhost
