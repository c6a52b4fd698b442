// A capture file while it is written: always a new file, private to its owner. The implementations are
// platform-specific.
#pragma once

#include <boost/filesystem/path.hpp>
#include <boost/system/error_code.hpp>
#include <cstddef>
#include <cstdint>
#include <span>

namespace fenlux::capture {

// One thread at a time.
class CaptureFile {
 public:
  CaptureFile() = default;
  ~CaptureFile() { Close(); }
  CaptureFile(const CaptureFile&) = delete;
  CaptureFile& operator=(const CaptureFile&) = delete;

  // Creates the file, readable and writable by its owner only. Fails if the name exists already, even as a symbolic
  // link.
  boost::system::error_code Create(const boost::filesystem::path& file);
  // Appends all of the bytes or none: on failure, removes the part that was written.
  boost::system::error_code Append(std::span<const std::uint8_t> bytes);
  void Close();

  bool IsOpen() const { return handle != kNone; }
  // Bytes appended.
  std::uint64_t Size() const { return size; }

 private:
  static constexpr std::intptr_t kNone = -1;

  std::intptr_t handle = kNone;  // a file descriptor, or a Windows handle
  std::uint64_t size = 0;
};

}  // namespace fenlux::capture
