// Process queries through /proc, where a process may disappear between any two reads.
#include <dirent.h>
#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <boost/filesystem/operations.hpp>
#include <memory>
#include <string_view>

#include "refhost/base/platform/descriptor_posix.h"
#include "refhost/base/text/utf_text.h"
#include "refhost/services/processes/proc_text.h"
#include "refhost/services/processes/process_queries.h"

namespace fenlux::refhost {
namespace {

constexpr std::size_t kMaxCommandLine = 4096;

std::string ProcPath(std::uint32_t processId, std::string_view entry) {
  return fmt::format("/proc/{}{}", processId, entry);
}

// The start of a file in /proc; empty if it cannot be read.
std::string ReadStart(const std::string& path, std::size_t limit) {
  const Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
  if (!file.Valid()) return {};
  std::string text(limit, '\0');
  std::size_t length = 0;
  while (length < limit) {
    const ssize_t count = ::read(file.Get(), text.data() + length, limit - length);
    if (count <= 0) break;
    length += static_cast<std::size_t>(count);
  }
  text.resize(length);
  return text;
}

// The path of the process's program as the process sees it.
std::string LinkOf(std::uint32_t processId) {
  std::array<char, 4096> target;
  const ssize_t length = ::readlink(ProcPath(processId, "/exe").c_str(), target.data(), target.size());
  return length <= 0 ? std::string() : std::string(target.data(), static_cast<std::size_t>(length));
}

std::string ImageOf(std::uint32_t processId) { return ImageFromLink(LinkOf(processId)); }

}  // namespace

bool ProcessRuns(std::uint32_t processId) {
  struct stat status {};
  return ::stat(ProcPath(processId, "").c_str(), &status) == 0;
}

std::uint32_t ProcessSession(std::uint32_t processId) {
  struct stat status {};
  if (::stat(ProcPath(processId, "").c_str(), &status) == 0 && status.st_uid == 0) return 0;
  return SessionFromText(ReadStart(ProcPath(processId, "/sessionid"), 16));
}

std::wstring ProcessImagePath(std::uint32_t processId) {
  // The link shows the path as the process sees it, and any user can mount one program over another in a namespace of
  // their own. So the path counts only if it names the same file here. That also leaves out a program whose file was
  // replaced since it was started.
  struct stat program {};
  if (::stat(ProcPath(processId, "/exe").c_str(), &program) != 0) return {};
  const std::string image = LinkOf(processId);
  struct stat named {};
  if (image.empty() || ::lstat(image.c_str(), &named) != 0) return {};
  const bool same = named.st_dev == program.st_dev && named.st_ino == program.st_ino;
  return same ? WideFromNarrow(image) : std::wstring();
}

std::string ProcessCommandLine(std::uint32_t processId) {
  return CommandLineFromText(ReadStart(ProcPath(processId, "/cmdline"), kMaxCommandLine));
}

std::set<std::uint64_t> RunningProcesses() {
  std::set<std::uint64_t> processes;
  const std::unique_ptr<DIR, int (*)(DIR*)> directory(::opendir("/proc"), [](DIR* open) { return ::closedir(open); });
  if (directory == nullptr) return processes;
  // Only this thread reads this stream.
  while (const dirent* entry = ::readdir(directory.get())) {  // NOLINT(concurrency-mt-unsafe)
    if (const auto processId = LeadingNumber(entry->d_name)) processes.insert(*processId);
  }
  return processes;
}

std::vector<std::uint32_t> ProcessesOfImage(const boost::filesystem::path& image) {
  std::vector<std::uint32_t> found;
  boost::system::error_code error;
  const boost::filesystem::path real = boost::filesystem::canonical(image, error);
  if (error) return found;
  for (const std::uint64_t processId : RunningProcesses()) {
    const auto id = static_cast<std::uint32_t>(processId);
    if (ImageOf(id) == real.native()) found.push_back(id);
  }
  return found;
}

boost::filesystem::path SystemImagePath(const std::string& imageName) {
  std::string name = imageName;
  std::replace(name.begin(), name.end(), '\\', '/');
  return boost::filesystem::path("/") / name;
}

}  // namespace fenlux::refhost
