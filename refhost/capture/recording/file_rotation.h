// The names of a recording's files, and how they move when a new file begins.
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

  // The current file for 0; otherwise the one that was current `age` files ago: of "port.pcapng", "port.1.pcapng".
  boost::filesystem::path NameOf(std::uint32_t age) const;

  // Why the files cannot be moved or replaced: something that is no capture has the name of one. Empty if they can.
  std::string FindObstacle() const;
  // Makes every existing file one older and removes the oldest, so that the current name is free. Returns why that
  // failed, or an empty text.
  std::string Shift() const;

 private:
  const boost::filesystem::path current;
  const std::uint32_t count;
};

}  // namespace fenlux::capture
