// The paths of the files of kernel events, if they can be established.
//
// /proc shows an open file's path as seen through the mount by which it was opened. Any user can create mounts, in
// their own namespace, that show a watched file under another name. So that path counts only if the file was opened
// through the mount on which its directory is watched. The kernel reuses the id of a removed mount; an open descriptor
// on each such mount keeps the mount, and with it the id.
//
// A file that was opened through another mount is looked up by its handle on its directory's mount. A handle
// identifies a file, not one of its names, so the result counts only if the file has a single name.
#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>

#include "common/mutex.h"
#include "common/thread_annotations.h"
#include "refhost/base/live_value.h"
#include "refhost/emulator/sources/kernel/file_status.h"
#include "refhost/emulator/sources/kernel/open_directory.h"

namespace fenlux::refhost {

// A directory whose events' paths can be established.
struct WatchedDirectory {
  std::string path;                            // as /proc shows it
  std::shared_ptr<const OpenDirectory> mount;  // any open directory on its mount

  bool operator==(const WatchedDirectory& other) const { return path == other.path && mount == other.mount; }
};
using WatchedDirectories = std::map<FileIdentity, WatchedDirectory>;

// Any thread. The constructor throws std::bad_alloc, and NoDescriptors.
class EventPaths {
 public:
  using TimePoint = std::chrono::steady_clock::time_point;

  // How long a directory is kept after Replace dropped it: earlier events may still be queued.
  static constexpr std::chrono::seconds kRetention{10};

  // Replaces the directories. Before you drop a directory, remove its mark.
  void Replace(const WatchedDirectories& directories, TimePoint now);
  // Adds directories to those it has. Call it before they are marked.
  void Add(const WatchedDirectories& directories);
  // Removes directories that were dropped at least kRetention ago, and releases their mounts.
  void Forget(TimePoint now);

  // The path of an open file in one of the directories; nullopt if it cannot be established. If the name was removed,
  // returns the name by which the file was opened. Throws std::bad_alloc, and NoDescriptors: it needs up to two.
  std::optional<std::string> PathOf(int file) const;

 private:
  struct Table {
    WatchedDirectories directories;
    std::map<FileIdentity, TimePoint> dropped;
    // The ids of the directories' mounts, all and by path. If a path has two directories, that of the one not dropped.
    std::set<std::uint64_t> mounts;
    std::map<std::string, std::uint64_t, std::less<>> mountOfPath;
  };

  static Table WithMounts(Table table);

  const OpenFileLinks links;
  Mutex writeMutex;  // one change at a time
  LiveValue<Table> table{Table()};
};

}  // namespace fenlux::refhost
