// Opens files by their wide names.
#include "refhost/base/platform/error_text.h"
#include "refhost/base/platform/file_opening.h"

namespace fenlux::refhost {

OpenedFile OpenForReading(const boost::filesystem::path& file) {
  OpenedFile result{{::_wfopen(file.c_str(), L"rb"), &std::fclose}, {}};
  if (result.stream == nullptr) result.reason = LastErrorText();
  return result;
}

}  // namespace fenlux::refhost
