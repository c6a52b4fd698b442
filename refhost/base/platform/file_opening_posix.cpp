// Opens files without blocking: a plain open could wait for a named pipe's writer or for a lease on the file.
#include <fcntl.h>
#include <sys/stat.h>

#include <utility>

#include "refhost/base/platform/descriptor_posix.h"
#include "refhost/base/platform/error_text.h"
#include "refhost/base/platform/file_opening.h"

namespace fenlux::refhost {
namespace {

OpenedFile Refusal(std::string reason) { return {{nullptr, &std::fclose}, std::move(reason)}; }

}  // namespace

OpenedFile OpenForReading(const boost::filesystem::path& file) {
  Descriptor opened(::open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK));
  struct stat status {};
  if (!opened.Valid() || ::fstat(opened.Get(), &status) != 0) return Refusal(LastErrorText());
  if (!S_ISREG(status.st_mode)) return Refusal("it is not a regular file");
  OpenedFile result{{::fdopen(opened.Get(), "rb"), &std::fclose}, {}};
  if (result.stream == nullptr) return Refusal(LastErrorText());
  opened.Release();
  return result;
}

}  // namespace fenlux::refhost
