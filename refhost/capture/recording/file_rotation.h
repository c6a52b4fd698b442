// The names of a recording's files, and their renaming when a new file begins.
#pragma once

#include <boost/filesystem/path.hpp>
#include <cstdint>
#include <string>

namespace fenlux::capture {

// One thread at a time.
class FileRotation {
 public:
  FileRotation(boost::filesystem::path currentFile, std::uint32_t fileCount)
      : current(std::move(currentFile)), count(fileCount) {}

  // The current file for 0, otherwise the file that was current `age` files ago: "port.1.pcapng" for "port.pcapng".
  boost::filesystem::path NameOf(std::uint32_t age) const;

  // Why the files cannot be renamed or replaced: something other than a capture has such a name. Empty if they can.
  std::string FindObstacle() const;
  // Renames every existing file to the next older name and removes the oldest, so that the current name is free.
  // Returns why that failed, or an empty string.
  std::string Shift() const;

 private:
  const boost::filesystem::path current;
  const std::uint32_t count;
};

}  // namespace fenlux::capture
