// Opens the file by its wide name. Others may read it while it is written.
#include <fmt/format.h>
#include <share.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>

#include "refhost/services/log/log_file.h"

namespace fenlux::refhost {

LogFile OpenForAppending(const boost::filesystem::path& file) {
  std::FILE* const stream = ::_wfsopen(file.c_str(), L"ab", _SH_DENYNO);
  if (stream == nullptr) {
    const int error = errno;
    throw std::runtime_error(
        fmt::format("the log file {} cannot be opened for writing: {}", file.string(), std::strerror(error)));
  }
  return LogFile(stream, [](std::FILE* opened) { std::fclose(opened); });
}

}  // namespace fenlux::refhost
