// Opens the file with flags that fopen does not support.
#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <stdexcept>
#include <string>

#include "refhost/base/platform/error_text.h"
#include "refhost/services/log/log_file.h"

namespace fenlux::refhost {
namespace {

[[noreturn]] void Refuse(const boost::filesystem::path& file, const std::string& reason) {
  throw std::runtime_error(fmt::format("the log file {} cannot be opened for writing: {}", file.native(), reason));
}

}  // namespace

LogFile OpenForAppending(const boost::filesystem::path& file) {
  // Without O_NONBLOCK, opening a named pipe without a reader would block.
  const int flags = O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NOCTTY | O_NOFOLLOW | O_NONBLOCK;
  const int descriptor = ::open(file.c_str(), flags, S_IRUSR | S_IWUSR);
  if (descriptor < 0) {
    const int error = errno;
    Refuse(file, error == ELOOP ? "it is a symbolic link; name the file itself" : SystemErrorText(error));
  }
  ::fcntl(descriptor, F_SETFL, O_APPEND);
  std::FILE* const stream = ::fdopen(descriptor, "a");
  if (stream == nullptr) {
    const std::string reason = LastErrorText();
    ::close(descriptor);
    Refuse(file, reason);
  }
  return LogFile(stream, [](std::FILE* opened) { std::fclose(opened); });
}

}  // namespace fenlux::refhost
