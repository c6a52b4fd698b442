// Opens the log file.
#pragma once

#include <boost/filesystem/path.hpp>
#include <cstdio>
#include <memory>

namespace fenlux::refhost {

// An open log file; the last copy closes it.
using LogFile = std::shared_ptr<std::FILE>;

// Opens the file for appending and creates missing directories. On POSIX systems, a new file is readable by this user
// only, and a symbolic link is refused. Throws std::runtime_error with the reason.
LogFile OpenLogFile(const boost::filesystem::path& file);
// The two steps of OpenLogFile. Creating the directories reports no errors, because opening the file does.
void CreateDirectoriesOf(const boost::filesystem::path& file);
// The implementations are platform-specific.
LogFile OpenForAppending(const boost::filesystem::path& file);

}  // namespace fenlux::refhost
