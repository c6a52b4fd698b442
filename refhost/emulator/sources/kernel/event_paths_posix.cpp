// Compares mounts, and looks files up by their handles.
#include "refhost/emulator/sources/kernel/event_paths.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <array>
#include <climits>
#include <set>
#include <string_view>
#include <utility>

#include "refhost/base/platform/error_text.h"

namespace fenlux::refhost {
namespace {

// The kernel appends this to the path of a name that was removed or replaced.
constexpr std::string_view kRemoved = " (deleted)";
constexpr std::size_t kHandleSize = 128;  // the most that the kernel uses

struct FileStatus {
  FileIdentity identity;
  std::uint32_t names = 0;             // how many the file has
  std::optional<std::uint64_t> mount;  // by which it was opened or named
};

std::optional<FileStatus> StatusOf(int directory, const char* path, int flags) {
  struct statx status {};
  constexpr unsigned kWanted = STATX_INO | STATX_NLINK | STATX_MNT_ID;
  // What the kernel knows is enough: a file server must not delay an event.
  if (::statx(directory, path, flags | AT_STATX_DONT_SYNC, kWanted, &status) != 0) return std::nullopt;
  FileStatus result;
  result.identity = {::makedev(status.stx_dev_major, status.stx_dev_minor), status.stx_ino};
  result.names = status.stx_nlink;
  if ((status.stx_mask & STATX_MNT_ID) != 0) result.mount = status.stx_mnt_id;
  return result;
}

std::optional<FileStatus> StatusOf(int file) { return StatusOf(file, "", AT_EMPTY_PATH); }
// Of the name itself if it is a symbolic link.
std::optional<FileStatus> StatusOf(const std::string& path) {
  return StatusOf(AT_FDCWD, path.c_str(), AT_SYMLINK_NOFOLLOW);
}

// What /proc shows for an open file; empty if that is not an absolute path, or longer than the system can show.
std::string LinkOf(int file) {
  std::array<char, PATH_MAX> text;
  const ssize_t length = ::readlink(fmt::format("/proc/self/fd/{}", file).c_str(), text.data(), text.size());
  if (length <= 0 || text.front() != '/') return {};
  return {text.data(), static_cast<std::size_t>(length)};
}

std::string_view ParentOf(std::string_view path) {
  const std::size_t slash = path.rfind('/');
  return slash == 0 ? path.substr(0, 1) : path.substr(0, slash);
}

// The path without the kernel's mark of a removed name. A file's real name may end like the mark.
std::string WithoutMark(std::string path, const FileStatus& file) {
  if (!path.ends_with(kRemoved)) return path;
  if (file.names > 0) {
    const std::optional<FileStatus> named = StatusOf(path);
    if (named && named->identity == file.identity) return path;
  }
  path.resize(path.size() - kRemoved.size());
  return path;
}

// A handle and the room for its bytes, which the kernel's type leaves out.
class FileHandle {
 public:
  explicit FileHandle(int file) {
    Get()->handle_bytes = kHandleSize;
    int mount = 0;
    valid = ::name_to_handle_at(file, "", Get(), &mount, AT_EMPTY_PATH) == 0;
  }

  // False if the file system has no handles.
  bool Valid() const { return valid; }
  struct file_handle* Get() {
    return reinterpret_cast<struct file_handle*>(memory.data());
  }

 private:
  alignas(struct file_handle) std::array<unsigned char, sizeof(struct file_handle) + kHandleSize> memory{};
  bool valid = false;
};

// The only name of the file on this mount; nothing if it has none or several there, or if the handle is another file's.
std::optional<std::string> OnlyName(FileHandle& handle, const HeldMount& mount, const FileIdentity& wanted) {
  // Handles are not opened on a descriptor that was itself opened with O_PATH.
  const Descriptor directory(::openat(mount.directory.Get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!directory.Valid()) return std::nullopt;
  const Descriptor file(::open_by_handle_at(directory.Get(), handle.Get(), O_PATH | O_CLOEXEC));
  if (!file.Valid()) return std::nullopt;
  std::string path = LinkOf(file.Get());
  if (path.empty()) return std::nullopt;
  const std::optional<FileStatus> named = StatusOf(path);
  if (!named || named->identity != wanted || named->names != 1) return std::nullopt;
  return path;
}

using Entries = std::map<FileIdentity, WatchedDirectories::Entry>;

// The watched directory that holds the file of this path; null if none does.
const WatchedDirectories::Entry* WatchedParent(const Entries& directories, std::string_view path) {
  const std::optional<FileStatus> parent = StatusOf(std::string(ParentOf(path)));
  const auto found = parent ? directories.find(parent->identity) : directories.end();
  return found == directories.end() ? nullptr : &found->second;
}

// Looks the file up by its handle, on each mount that has a watched directory of the file's device.
std::optional<std::string> OnlyWatchedName(const Entries& directories, int file, const FileStatus& status) {
  if (status.names != 1) return std::nullopt;
  FileHandle handle(file);
  if (!handle.Valid()) return std::nullopt;
  std::set<std::uint64_t> tried;
  for (const auto& [identity, directory] : directories) {
    const HeldMount& mount = *directory.mount;
    if (identity.first != status.identity.first || !tried.insert(mount.id).second) continue;
    std::optional<std::string> name = OnlyName(handle, mount, status.identity);
    if (!name) continue;
    const WatchedDirectories::Entry* const parent = WatchedParent(directories, *name);
    if (parent != nullptr && parent->mount->id == mount.id) return name;
  }
  return std::nullopt;
}

}  // namespace

std::string WatchedDirectories::Add(const std::string& name) {
  Descriptor directory(::open(name.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  if (!directory.Valid()) return LastErrorText();
  const std::optional<FileStatus> status = StatusOf(directory.Get());
  if (!status) return LastErrorText();
  if (!status->mount) return "its mount has no id; Linux 5.8 or later is needed";
  std::string path = LinkOf(directory.Get());
  if (path.empty()) return "its path is too long";
  std::shared_ptr<const HeldMount>& held = mounts[*status->mount];
  if (held == nullptr) held = std::make_shared<const HeldMount>(HeldMount{*status->mount, std::move(directory)});
  entries.insert_or_assign(status->identity, Entry{std::move(path), held});
  return {};
}

EventPaths::Table EventPaths::WithMounts(Table table) {
  table.mounts.clear();
  table.mountOfPath.clear();
  for (const auto& [identity, directory] : table.directories) {
    table.mounts.insert(directory.mount->id);
    if (table.dropped.contains(identity)) {
      table.mountOfPath.emplace(directory.path, directory.mount->id);
    } else {
      table.mountOfPath[directory.path] = directory.mount->id;
    }
  }
  return table;
}

void EventPaths::Replace(const WatchedDirectories& directories, TimePoint now) {
  const MutexLock lock(writeMutex);
  Table next;
  next.directories = directories.Entries();
  const std::shared_ptr<const Table> last = table.Get();
  for (const auto& [identity, directory] : last->directories) {
    if (!next.directories.emplace(identity, directory).second) continue;
    const auto dropped = last->dropped.find(identity);
    next.dropped.emplace(identity, dropped == last->dropped.end() ? now : dropped->second);
  }
  table.Set(WithMounts(std::move(next)));
}

void EventPaths::Add(const WatchedDirectories& directories) {
  const MutexLock lock(writeMutex);
  Table next = *table.Get();
  std::map<std::uint64_t, std::shared_ptr<const HeldMount>> held;
  for (const auto& [identity, directory] : next.directories) held.emplace(directory.mount->id, directory.mount);
  for (auto [identity, directory] : directories.Entries()) {
    // One descriptor for each mount is enough, however often directories are added.
    directory.mount = held.emplace(directory.mount->id, directory.mount).first->second;
    next.directories.insert_or_assign(identity, std::move(directory));
    next.dropped.erase(identity);
  }
  table.Set(WithMounts(std::move(next)));
}

void EventPaths::Forget(TimePoint now) {
  const MutexLock lock(writeMutex);
  const std::shared_ptr<const Table> last = table.Get();
  if (last->dropped.empty()) return;
  Table next = *last;
  std::erase_if(next.dropped, [&](const auto& dropped) {
    if (now - dropped.second < kRetention) return false;
    next.directories.erase(dropped.first);
    return true;
  });
  if (next.dropped.size() != last->dropped.size()) table.Set(WithMounts(std::move(next)));
}

std::optional<std::string> EventPaths::PathOf(int file) const {
  const std::optional<FileStatus> status = StatusOf(file);
  if (!status) return std::nullopt;
  const std::shared_ptr<const Table> known = table.Get();
  // The path that another mount shows is not even looked up: it may lead to a file system of the opener's.
  if (status->mount && known->mounts.contains(*status->mount)) {
    std::string path = WithoutMark(LinkOf(file), *status);
    if (path.empty()) return std::nullopt;
    const auto directory = known->mountOfPath.find(ParentOf(path));
    if (directory != known->mountOfPath.end() && directory->second == *status->mount) return path;
    // A directory may have been renamed since it was marked.
    const WatchedDirectories::Entry* const parent = WatchedParent(known->directories, path);
    if (parent != nullptr && parent->mount->id == *status->mount) return path;
  }
  return OnlyWatchedName(known->directories, file, *status);
}

}  // namespace fenlux::refhost
