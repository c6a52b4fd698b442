// Process queries through /proc, where a process may disappear between any two reads.
#include <dirent.h>
#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <boost/filesystem/operations.hpp>
#include <cerrno>
#include <memory>
#include <string_view>

#include "refhost/base/platform/descriptor_posix.h"
#include "refhost/base/text/utf_text.h"
#include "refhost/services/processes/proc_text.h"
#include "refhost/services/processes/process_queries.h"

namespace fenlux::refhost {
namespace {

constexpr std::size_t kMaxText = 4096;      // the most that is read of an entry
constexpr std::size_t kStatusStart = 1024;  // "Uid" is one of the first lines, after the program's short name

std::string ProcPath(std::uint32_t processId, std::string_view entry) {
  return fmt::format("/proc/{}{}", processId, entry);
}

// The first bytes of a process's entry in /proc, at most `limit`, which must not exceed kMaxText; empty if it cannot be
// read.
std::string ReadStart(std::uint32_t processId, std::string_view entry, std::size_t limit) {
  const Descriptor file(::open(ProcPath(processId, entry).c_str(), O_RDONLY | O_CLOEXEC));
  if (!file.Valid()) return {};
  // Not read into the string: its unused memory would stay with it in the module's process cache.
  std::array<char, kMaxText> text;
  std::size_t length = 0;
  while (length < limit) {
    const ssize_t count = ::read(file.Get(), text.data() + length, limit - length);
    if (count <= 0) break;
    length += static_cast<std::size_t>(count);
  }
  return {text.data(), length};
}

// The path under which an open file was opened.
std::string PathOf(const Descriptor& file) {
  std::array<char, 4096> target;
  const ssize_t length = ::readlink(fmt::format("/proc/self/fd/{}", file.Get()).c_str(), target.data(), target.size());
  return length <= 0 ? std::string() : std::string(target.data(), static_cast<std::size_t>(length));
}

// The path of a program that was opened through its process; empty if it cannot be established.
std::string EstablishedImage(const Descriptor& program) {
  // The link shows the path as the process sees it, and any user can mount one program over another in their own
  // namespace. So the path counts only if it names the same file here. That also excludes a program whose file was
  // replaced after it started. Both are read from one descriptor, because the process may run another program at any
  // time; while the descriptor is open, the inode's number cannot be reused.
  struct stat status {};
  if (::fstat(program.Get(), &status) != 0) return {};
  std::string image = PathOf(program);
  struct stat named {};
  if (image.empty() || ::lstat(image.c_str(), &named) != 0) return {};
  return named.st_dev == status.st_dev && named.st_ino == status.st_ino ? image : std::string();
}

}  // namespace

bool ProcessRuns(std::uint32_t processId) {
  struct stat status {};
  return ::stat(ProcPath(processId, "").c_str(), &status) == 0;
}

std::uint32_t ProcessSession(std::uint32_t processId) {
  if (ProcessUser(processId) == 0U) return 0;
  return SessionFromText(ReadStart(processId, "/sessionid", 16));
}

std::optional<std::uint32_t> ProcessUser(std::uint32_t processId) {
  // The directory's owner is no substitute: it is root if the process must not be dumped, whatever its user.
  return UserFromText(ReadStart(processId, "/status", kStatusStart));
}

std::wstring ProcessImagePath(std::uint32_t processId) {
  const Descriptor program(::open(ProcPath(processId, "/exe").c_str(), O_PATH | O_CLOEXEC));
  if (program.Valid()) return WideFromNarrow(EstablishedImage(program));
  const int error = errno;
  const bool isLack = error == EMFILE || error == ENFILE || error == ENOMEM;
  return isLack ? std::wstring(kImageNotRead) : std::wstring();
}

std::string ProcessCommandLine(std::uint32_t processId) {
  return CommandLineFromText(ReadStart(processId, "/cmdline", kMaxText));
}

std::set<std::uint64_t> RunningProcesses() {
  std::set<std::uint64_t> processes;
  const std::unique_ptr<DIR, int (*)(DIR*)> directory(::opendir("/proc"), [](DIR* open) { return ::closedir(open); });
  if (directory == nullptr) return processes;
  // No other thread uses this stream.
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
  const std::wstring path = WideFromNarrow(real.native());
  for (const std::uint64_t processId : RunningProcesses()) {
    const auto id = static_cast<std::uint32_t>(processId);
    if (ProcessImagePath(id) == path) found.push_back(id);
  }
  return found;
}

boost::filesystem::path SystemImagePath(const std::string& imageName) {
  std::string name = imageName;
  std::replace(name.begin(), name.end(), '\\', '/');
  return boost::filesystem::path("/") / name;
}

}  // namespace fenlux::refhost
