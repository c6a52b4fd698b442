// Compares mounts, and looks up files by their handles.
#include "refhost/emulator/sources/kernel/event_paths.h"

#include <string_view>
#include <utility>

namespace fenlux::refhost {
namespace {

// The kernel appends this to the path if the name was removed or replaced.
constexpr std::string_view kRemoved = " (deleted)";

std::string_view ParentOf(std::string_view path) {
  const std::size_t slash = path.rfind('/');
  return slash == 0 ? path.substr(0, 1) : path.substr(0, slash);
}

// The path without the kernel's suffix for a removed name. A file's real name may end in the same text.
std::string WithoutMark(std::string path, const FileStatus& file) {
  if (!path.ends_with(kRemoved)) return path;
  if (file.names > 0) {
    const std::optional<FileStatus> named = StatusOf(path);
    if (named && named->identity == file.identity) return path;
  }
  path.resize(path.size() - kRemoved.size());
  return path;
}

// The only name of the file on this mount; nullopt if it has none or several, or if the handle is another file's.
std::optional<std::string> OnlyName(const OpenFileLinks& links, const FileHandle& handle, const OpenDirectory& mount,
                                    const FileIdentity& wanted) {
  const Descriptor file = handle.Open(mount.descriptor.Get());
  if (!file.Valid()) return std::nullopt;
  std::string path = links.PathOf(file.Get());
  if (path.empty()) return std::nullopt;
  const std::optional<FileStatus> named = StatusOf(path);
  if (!named || named->identity != wanted || named->names != 1) return std::nullopt;
  return path;
}

// The watched directory that contains the file of this path; null if none does.
const WatchedDirectory* WatchedParent(const WatchedDirectories& directories, std::string_view path) {
  const std::optional<FileStatus> parent = StatusOf(std::string(ParentOf(path)));
  const auto found = parent ? directories.find(parent->identity) : directories.end();
  return found == directories.end() ? nullptr : &found->second;
}

// Looks up the file by its handle on each mount that has a watched directory on the file's device.
std::optional<std::string> OnlyWatchedName(const OpenFileLinks& links, const WatchedDirectories& directories, int file,
                                           const FileStatus& status) {
  if (status.names != 1) return std::nullopt;
  const FileHandle handle(file);
  if (!handle.Valid()) return std::nullopt;
  std::set<std::uint64_t> tried;
  for (const auto& [identity, directory] : directories) {
    const OpenDirectory& onMount = *directory.mount;
    if (identity.first != status.identity.first || !tried.insert(onMount.mountId).second) continue;
    std::optional<std::string> name = OnlyName(links, handle, onMount, status.identity);
    if (!name) continue;
    const WatchedDirectory* const parent = WatchedParent(directories, *name);
    if (parent != nullptr && parent->mount->mountId == onMount.mountId) return name;
  }
  return std::nullopt;
}

}  // namespace

EventPaths::Table EventPaths::WithMounts(Table table) {
  table.mounts.clear();
  table.mountOfPath.clear();
  for (const auto& [identity, directory] : table.directories) {
    table.mounts.insert(directory.mount->mountId);
    if (table.dropped.contains(identity)) {
      table.mountOfPath.emplace(directory.path, directory.mount->mountId);
    } else {
      table.mountOfPath[directory.path] = directory.mount->mountId;
    }
  }
  return table;
}

void EventPaths::Replace(const WatchedDirectories& directories, TimePoint now) {
  const MutexLock lock(writeMutex);
  Table next;
  next.directories = directories;
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
  for (const auto& [identity, directory] : directories) {
    next.directories.insert_or_assign(identity, directory);
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
  // A path shown through another mount is never looked up: it may lead to a file system that the opener controls.
  if (status->mount && known->mounts.contains(*status->mount)) {
    std::string path = WithoutMark(links.PathOf(file), *status);
    if (path.empty()) return std::nullopt;
    const auto directory = known->mountOfPath.find(ParentOf(path));
    if (directory != known->mountOfPath.end() && directory->second == *status->mount) return path;
    // A directory may have been renamed since it was marked.
    const WatchedDirectory* const parent = WatchedParent(known->directories, path);
    if (parent != nullptr && parent->mount->mountId == *status->mount) return path;
  }
  return OnlyWatchedName(links, known->directories, file, *status);
}

}  // namespace fenlux::refhost
