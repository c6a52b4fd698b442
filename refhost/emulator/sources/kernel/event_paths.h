// The paths of kernel events' files, as far as they can be established.
//
// /proc shows an open file's path as seen through the mount by which it was opened. Any user can make mounts, in a
// namespace of their own, that show a watched file under another name. So that path counts only if the file was opened
// through the mount on which its directory is watched. A mount's id is given to another mount as soon as the mount is
// gone; an open descriptor on each such mount keeps it, and with it the id.
//
// A file that was opened through another mount is looked up by its handle on its directory's mount. A handle stands for
// a file, not for one of its names, so the result counts only if the file has a single name.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <utility>

#include "common/mutex.h"
#include "common/thread_annotations.h"
#include "refhost/base/live_value.h"
#include "refhost/base/platform/descriptor_posix.h"

namespace fenlux::refhost {

// Device and inode: identifies a file or directory whatever its name.
using FileIdentity = std::pair<dev_t, ino_t>;

// A mount that exists, and keeps its id, as long as this does. It cannot be unmounted meanwhile.
struct HeldMount {
  std::uint64_t id;
  Descriptor directory;  // on the mount, opened with O_PATH
};

// Directories and their mounts. One thread at a time; any number may read.
class WatchedDirectories {
 public:
  struct Entry {
    std::string path;  // as /proc shows it
    std::shared_ptr<const HeldMount> mount;
  };

  // Adds the directory that this name stands for. Returns why it cannot; empty if it does. Directories on one mount
  // share a descriptor.
  std::string Add(const std::string& name);
  const std::map<FileIdentity, Entry>& Entries() const { return entries; }

 private:
  std::map<FileIdentity, Entry> entries;
  std::map<std::uint64_t, std::shared_ptr<const HeldMount>> mounts;
};

// Any thread.
class EventPaths {
 public:
  using TimePoint = std::chrono::steady_clock::time_point;

  // How long a directory is still known after Replace dropped it: events from before may be queued.
  static constexpr std::chrono::seconds kRetention{10};

  // Replaces the directories. Call it before the marks change, so that no event's directory is unknown.
  void Replace(const WatchedDirectories& directories, TimePoint now);
  // Adds directories to those it has. Call it before they are marked.
  void Add(const WatchedDirectories& directories);
  // Forgets directories that were dropped at least kRetention ago, and releases their mounts.
  void Forget(TimePoint now);

  // The path of an open file in one of the directories; nothing if it cannot be established. For a name that is gone,
  // that is the name by which the file was opened.
  std::optional<std::string> PathOf(int file) const;

 private:
  struct Table {
    std::map<FileIdentity, WatchedDirectories::Entry> directories;
    std::map<FileIdentity, TimePoint> dropped;
    // The ids of their mounts, and by path. Of two directories that had the same path, the wanted one's.
    std::set<std::uint64_t> mounts;
    std::map<std::string, std::uint64_t, std::less<>> mountOfPath;
  };

  static Table WithMounts(Table table);

  Mutex writeMutex;  // one change at a time
  LiveValue<Table> table{Table()};
};

}  // namespace fenlux::refhost
