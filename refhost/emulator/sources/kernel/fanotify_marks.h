// The directories that a fanotify group watches, kept equal to the requested set.
#pragma once

#include <cstdint>
#include <ctime>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "refhost/emulator/driver/shared/event_source.h"
#include "refhost/emulator/sources/kernel/event_paths.h"
#include "refhost/emulator/sources/kernel/open_directory.h"

namespace fenlux::refhost {

// Marks single directories and their children, never a mount or a file system. One thread at a time.
//
// A name is resolved once. The directory it then leads to is the one that is checked, added to EventPaths and marked,
// even if the name changes in between. Only marks of directories that are no longer wanted are removed.
class FanotifyMarks {
 public:
  // `groupDescriptor` and `eventPaths` are borrowed and outlive the marks. `eventMask` holds the selected events.
  // The marks' directories are added to `eventPaths` before they are marked.
  FanotifyMarks(int groupDescriptor, std::uint64_t eventMask, bool withSubdirectories, EventPaths& eventPaths)
      : group(groupDescriptor), mask(eventMask), recursive(withSubdirectories), paths(eventPaths) {}

  // Why a directory cannot be watched; empty if it can. It must be absolute, exist, be a directory, and be neither "/"
  // nor "/tmp" under any name.
  static std::string Refusal(const std::string& directory);

  // The result of one change.
  struct Change {
    std::vector<std::string> added;
    std::vector<std::string> removed;
    std::vector<std::string> refused;  // "directory: reason"
    std::vector<std::string> lost;     // likewise, for those that were watched
  };
  // Watches exactly these directories. Renews the marks that stay, so that a directory that was deleted and recreated
  // is watched again. If a name cannot be resolved for lack of file descriptors, its directory stays watched. Throws
  // std::bad_alloc: then only some of the directories are watched, possibly along with those of the last Set, and the
  // next call completes the change.
  Change Set(const std::vector<std::string>& directories);
  // Checks whether the names of the last Set still lead to the watched directories. Watches directories that were
  // recreated under such a name and, if subdirectories are watched, new subdirectories. A directory that was renamed
  // or moved stays watched until the next Set. Throws std::bad_alloc; the next call continues.
  Change Renew();
  // The state of each directory of the last Set.
  const std::vector<WatchState>& States() const { return states; }
  // Removes every mark of the group. Any thread.
  static void RemoveAll(int groupDescriptor);

 private:
  struct Watched {
    std::string name;  // as passed to Set, or as found below such a directory
    WatchedDirectory known;
    FileHandle handle;                          // finds the directory whatever its name
    std::shared_ptr<const OpenDirectory> held;  // null unless the file system has no handles
    // When the directory last changed. Empty if another change might go unnoticed because it falls within the same
    // tick of the kernel's clock.
    std::optional<timespec> changed;
    bool displaced = false;  // its name no longer leads to it
    bool unwanted = false;   // its mark is to be removed
  };
  // kChanged: the directory itself, and those below it that are not watched yet.
  enum class Scope { kAll, kUnwatched, kChanged };
  struct Named {
    std::string name;
    std::shared_ptr<const OpenDirectory> directory;
  };
  // The directories found so far during one Set or Renew.
  struct Round {
    Change& change;
    std::set<FileIdentity> wanted;  // every directory that was found
    std::vector<Named> found;       // those still to be marked; few, because each is open
  };

  // Finds the directory and, if subdirectories are watched, those below it. With kUnwatched, skips watched directories
  // and everything below them.
  void Collect(const std::string& name, Scope scope, Round& round);
  void CollectBelow(const Named& parent, Scope scope, Round& round);
  // Does the same for a name that has been resolved; records a refusal.
  void Take(const std::string& name, FoundDirectory found, Scope scope, Round& round);
  // Keeps what is watched at the name and below it, because whether that still exists cannot be determined.
  void KeepBelow(const std::string& name, const NoDescriptors& error, Round& round) const;
  // Marks the directories that were found, and closes them.
  void MarkFound(Round& round);
  Watched MakeWatched(const Named& found);
  // Removes the marks of unwanted directories. Keeps the entries of those for which that fails.
  void RemoveUnwanted();
  bool Unmark(const Watched& directory) const;
  // The open directory that is kept for the directory's mount: one for each mount.
  std::shared_ptr<const OpenDirectory> HeldOnMountOf(const std::shared_ptr<const OpenDirectory>& directory);
  // Whether the name leads to a directory that is watched, possibly under another name.
  bool IsWatched(const std::string& name) const;
  bool IsWatched(const FileIdentity& identity) const;
  // Whether a directory has changed since its `changed`, and why its name no longer leads to it; empty if it does.
  struct Look {
    bool changed = false;
    std::optional<timespec> settled;  // its next `changed`
    std::string lost;
  };
  static Look LookAt(const FileIdentity& identity, const Watched& directory);
  // Records which directories of the last Set are watched, and why the others are not. Unless the states are outdated,
  // skips those that were watched.
  void NoteStates(const std::vector<std::string>& refused);

  const int group;
  const std::uint64_t mask;
  const bool recursive;
  EventPaths& paths;
  // All directories with marks, and possibly some that lost theirs. EventPaths contains each of them.
  std::map<FileIdentity, Watched> marked;
  std::map<std::uint64_t, std::weak_ptr<const OpenDirectory>> mounts;
  bool statesOutdated = false;
  std::vector<WatchState> states;  // of the directories of the last Set, sorted by name
};

}  // namespace fenlux::refhost
