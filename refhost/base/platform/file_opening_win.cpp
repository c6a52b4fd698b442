// Names of files are wide.
#include <cerrno>
#include <system_error>

#include "refhost/base/platform/file_opening.h"

namespace fenlux::refhost {

OpenedFile OpenForReading(const boost::filesystem::path& file) {
  OpenedFile result{{::_wfopen(file.c_str(), L"rb"), &std::fclose}, {}};
  const int error = errno;
  if (result.stream == nullptr) result.reason = std::generic_category().message(error);
  return result;
}

}  // namespace fenlux::refhost
