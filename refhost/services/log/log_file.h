// Opening of the log file.
#pragma once

#include <boost/filesystem/path.hpp>
#include <cstdio>
#include <memory>

namespace fenlux::refhost {

// An open log file, closed with the last copy.
using LogFile = std::shared_ptr<std::FILE>;

// Opens the file for appending. Creates it for this user alone, and does not follow a symbolic link in its place
// (POSIX). Creates missing directories. Throws std::runtime_error with the reason.
LogFile OpenLogFile(const boost::filesystem::path& file);
// Its two steps. Creating the directories reports no error, because opening the file does.
void CreateDirectoriesOf(const boost::filesystem::path& file);
// The bodies are platform-specific.
LogFile OpenForAppending(const boost::filesystem::path& file);

}  // namespace fenlux::refhost
