// Creates the directories of the log file before opening it.
#include "refhost/services/log/log_file.h"

#include <boost/filesystem/operations.hpp>

namespace fenlux::refhost {

void CreateDirectoriesOf(const boost::filesystem::path& file) {
  boost::system::error_code ignored;
  if (file.has_parent_path()) boost::filesystem::create_directories(file.parent_path(), ignored);
}

LogFile OpenLogFile(const boost::filesystem::path& file) {
  CreateDirectoriesOf(file);
  return OpenForAppending(file);
}

}  // namespace fenlux::refhost
