// What the operating system knows of processes. The bodies are the platform's.
#pragma once

#include <boost/filesystem/path.hpp>
#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace fenlux::refhost {

// All functions: any thread. A process that ended, or that may not be looked at, gives nothing or an empty text.

// Whether the process runs.
bool ProcessRuns(std::uint32_t processId);
// The login session that the process belongs to; 0 for one that belongs to none or to the system's own account, as
// services do.
std::uint32_t ProcessSession(std::uint32_t processId);
// The full path of the program that the process runs.
std::wstring ProcessImagePath(std::uint32_t processId);
// The command line in UTF-8, its arguments separated by spaces; cut at 4096 bytes.
std::string ProcessCommandLine(std::uint32_t processId);
std::set<std::uint64_t> RunningProcesses();
// The processes that run this program, in ascending order of their ids. Links on the way to it are followed.
std::vector<std::uint32_t> ProcessesOfImage(const boost::filesystem::path& image);

// The system's own place for an image that is named relative to the system directory.
boost::filesystem::path SystemImagePath(const std::string& imageName);

}  // namespace fenlux::refhost
