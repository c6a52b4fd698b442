// Creates the directories of the log file before opening it.
#include "refhost/services/log/log_file.h"

#include <boost/filesystem/operations.hpp>

namespace fenlux::refhost {

LogFile OpenLogFile(const boost::filesystem::path& file) {
  boost::system::error_code error;  // opening the file says what is wrong
  if (file.has_parent_path()) boost::filesystem::create_directories(file.parent_path(), error);
  return OpenForAppending(file);
}

}  // namespace fenlux::refhost
