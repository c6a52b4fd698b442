// Queries about processes. The implementations are platform-specific.
#pragma once

#include <boost/filesystem/path.hpp>
#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace fenlux::refhost {

// All functions: any thread. For a process that has ended or may not be queried, the result is empty.

// Instead of a program's path: the calling process had no file descriptor or memory left to read it (Linux).
inline constexpr std::wstring_view kImageNotRead = L"?";

// Whether the process is running.
bool ProcessRuns(std::uint32_t processId);
// The process's login session; 0 if it has none, or if it runs under the system account, as services do.
std::uint32_t ProcessSession(std::uint32_t processId);
// The effective user of the process. Linux only.
std::optional<std::uint32_t> ProcessUser(std::uint32_t processId);
// The full path of the process's program. Empty if the program cannot be shown to be the file of that name: it was
// replaced or removed, or the process sees other files than the caller. May be kImageNotRead.
std::wstring ProcessImagePath(std::uint32_t processId);
// The command line in UTF-8, with its arguments separated by spaces, truncated to 4096 bytes.
std::string ProcessCommandLine(std::uint32_t processId);
std::set<std::uint64_t> RunningProcesses();
// The processes whose program is certain to be this one (see ProcessImagePath), in ascending order of ids. Follows
// symbolic links in the path.
std::vector<std::uint32_t> ProcessesOfImage(const boost::filesystem::path& image);

// The path of an image whose name is relative to the system directory.
boost::filesystem::path SystemImagePath(const std::string& imageName);

}  // namespace fenlux::refhost
