// Capture files on POSIX systems, by file descriptor.
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "refhost/capture/recording/capture_file.h"

namespace fenlux::capture {
namespace {

boost::system::error_code LastError() { return {errno, boost::system::system_category()}; }

}  // namespace

boost::system::error_code CaptureFile::Create(const boost::filesystem::path& file) {
  Close();
  const int descriptor = ::open(file.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
  if (descriptor < 0) return LastError();
  handle = descriptor;
  size = 0;
  return {};
}

boost::system::error_code CaptureFile::Append(std::span<const std::uint8_t> bytes) {
  const int descriptor = static_cast<int>(handle);
  std::size_t done = 0;
  while (done < bytes.size()) {
    const ssize_t count = ::write(descriptor, bytes.data() + done, bytes.size() - done);
    if (count >= 0) {
      done += static_cast<std::size_t>(count);
      continue;
    }
    if (errno == EINTR) continue;
    const boost::system::error_code error = LastError();
    // Remove the partial block, which a reader would report as damage. If that fails too, close the file, because
    // nothing more can be appended to it.
    const auto whole = static_cast<off_t>(size);
    if (done > 0 && (::ftruncate(descriptor, whole) != 0 || ::lseek(descriptor, whole, SEEK_SET) < 0)) Close();
    return error;
  }
  size += bytes.size();
  return {};
}

void CaptureFile::Close() {
  if (IsOpen()) ::close(static_cast<int>(handle));
  handle = kNone;
}

}  // namespace fenlux::capture
