// Opens directories to be watched, and refuses "/" and "/tmp".
#include "refhost/emulator/sources/kernel/open_directory.h"

#include <fmt/format.h>
#include <sys/stat.h>

#include <boost/filesystem/directory.hpp>
#include <cerrno>
#include <utility>

#include "refhost/base/platform/error_text.h"

namespace fenlux::refhost {
namespace {

// Watching these would block programs that have nothing to do with the host.
constexpr const char* kNeverWatched[] = {"/", "/tmp"};

FoundDirectory Refused(std::string reason) { return {nullptr, std::move(reason)}; }

// Called right after the attempt to open the directory, because it reads errno.
FoundDirectory Found(Descriptor descriptor) {
  if (!descriptor.Valid()) {
    const int error = errno;
    ThrowIfLacking(error);
    return Refused(error == ENOTDIR ? "is not a directory" : SystemErrorText(error));
  }
  const std::optional<FileStatus> status = StatusOf(descriptor.Get());
  if (!status) return Refused(LastErrorText());
  std::string never = NeverWatched(status->identity);
  if (!never.empty()) return Refused(std::move(never));
  if (!status->mount) return Refused("its mount has no id; Linux 5.8 or later is needed");
  std::string path = OpenFileLinks().PathOf(descriptor.Get());
  if (path.empty()) return Refused("its path is too long, or /proc is not mounted");
  return {std::make_shared<const OpenDirectory>(
              OpenDirectory{std::move(descriptor), status->identity, *status->mount, std::move(path)}),
          {}};
}

}  // namespace

std::string NeverWatched(const FileIdentity& identity) {
  for (const char* never : kNeverWatched) {
    struct stat other {};
    if (::stat(never, &other) == 0 && FileIdentity(other.st_dev, other.st_ino) == identity) {
      return std::string("is ") + never + " itself, which is never watched";
    }
  }
  return {};
}

FoundDirectory FindDirectory(const std::string& name) {
  if (name.empty() || name.front() != '/') return Refused("is not an absolute path");
  return Found(Descriptor(::open(name.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC)));
}

FoundDirectory FindDirectory(const OpenDirectory& parent, const std::string& name) {
  Descriptor found(::openat(parent.descriptor.Get(), name.c_str(), O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  // Removed since its name was read, or not a directory.
  if (!found.Valid() && (errno == ENOENT || errno == ENOTDIR || errno == ELOOP)) return {};
  return Found(std::move(found));
}

std::vector<std::string> DirectoriesIn(const OpenDirectory& parent, std::string& refusal) {
  std::vector<std::string> names;
  boost::system::error_code error;
  boost::filesystem::directory_iterator entry(fmt::format("/proc/self/fd/{}", parent.descriptor.Get()), error);
  for (; !error && entry != boost::filesystem::directory_iterator(); entry.increment(error)) {
    boost::system::error_code entryError;
    if (entry->symlink_status(entryError).type() != boost::filesystem::directory_file) continue;
    names.push_back(entry->path().filename().native());
  }
  if (error) {
    ThrowIfLacking(error.value());
    refusal = "cannot list its directories: " + error.message();
  }
  return names;
}

}  // namespace fenlux::refhost
