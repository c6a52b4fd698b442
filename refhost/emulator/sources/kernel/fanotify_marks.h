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
// A name is resolved once. The directory that it stands for then is the one that is checked, described to EventPaths,
// and marked, even if the name changes meanwhile. Only marks of directories that are no longer wanted are removed.
class FanotifyMarks {
 public:
  // `groupDescriptor` and `eventPaths` are borrowed and outlive the marks. `eventMask` holds the selected events.
  // Set tells `eventPaths` about the directories.
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
    std::vector<std::string> lost;     // the same, of those that were watched
  };
  // Watches exactly these directories. Marks that stay are renewed, so that a directory that was deleted and created
  // again is watched again. If a name cannot be resolved for lack of file descriptors, its directory stays watched.
  // Throws std::bad_alloc: then it watches some of the directories, possibly besides those of the last Set, and the
  // next call completes it.
  Change Set(const std::vector<std::string>& directories);
  // Checks whether the names of the last Set still stand for what is watched: watches a directory that was created
  // again under such a name and, if it watches subdirectories, new ones. A directory that was renamed or moved stays
  // watched until the next Set. Throws std::bad_alloc; the next call continues.
  Change Renew();
  // How each directory of the last Set is now.
  const std::vector<WatchState>& States() const { return states; }
  // Removes every mark of the group. Any thread.
  static void RemoveAll(int groupDescriptor);

 private:
  struct Watched {
    std::string name;  // as it was given, or as found below a given one
    WatchedDirectory known;
    FileHandle handle;                          // finds it whatever its name
    std::shared_ptr<const OpenDirectory> held;  // does so where the file system has no handles; otherwise null
    // When the directory last changed. Nothing if a further change might not show, because it came within the same
    // tick of the kernel's clock.
    std::optional<timespec> changed;
    bool displaced = false;  // its name no longer leads to it
    bool unwanted = false;   // its mark is to be removed
  };
  // kChanged: the directory itself in any case, and those below it that are not watched.
  enum class Scope { kAll, kUnwatched, kChanged };
  struct Named {
    std::string name;
    std::shared_ptr<const OpenDirectory> directory;
  };
  // Directories on their way from a name to a mark.
  struct Round {
    Change& change;
    std::set<FileIdentity> wanted;  // all that were found
    std::vector<Named> found;       // those that are to be marked; few, because they are open
  };

  // Finds the directory, and those below it if they are wanted. On request, skips watched directories and what is below
  // them.
  void Collect(const std::string& name, Scope scope, Round& round);
  void CollectBelow(const Named& parent, Scope scope, Round& round);
  // The same once the name is resolved; notes a refusal.
  void Take(const std::string& name, FoundDirectory found, Scope scope, Round& round);
  // Keeps what is watched under the name and below it: whether it still exists cannot be determined.
  void KeepBelow(const std::string& name, const NoDescriptors& error, Round& round) const;
  // Marks what was found and closes it.
  void MarkFound(Round& round);
  Watched MakeWatched(const Named& found);
  // Removes the marks of unwanted directories. Those for which that fails stay known.
  void RemoveUnwanted();
  bool Unmark(const Watched& directory) const;
  // Any open directory on the directory's mount: one for each mount.
  std::shared_ptr<const OpenDirectory> HeldOnMountOf(const std::shared_ptr<const OpenDirectory>& directory);
  // Whether the name leads to a directory that is watched, maybe under another name.
  bool IsWatched(const std::string& name) const;
  bool IsWatched(const FileIdentity& identity) const;
  // Whether a directory has changed since its `changed`, and why its name does not lead to it; empty if it does.
  struct Look {
    bool changed = false;
    std::optional<timespec> settled;  // its next `changed`
    std::string lost;
  };
  static Look LookAt(const FileIdentity& identity, const Watched& directory);
  // Notes which directories of the last Set are watched, and why the others are not. Unless the states are outdated,
  // those that were watched still are.
  void NoteStates(const std::vector<std::string>& refused);

  const int group;
  const std::uint64_t mask;
  const bool recursive;
  EventPaths& paths;
  // All that have marks, and maybe some that lost theirs. EventPaths knows each of them.
  std::map<FileIdentity, Watched> marked;
  std::map<std::uint64_t, std::weak_ptr<const OpenDirectory>> mounts;
  bool statesOutdated = false;
  std::vector<WatchState> states;  // of the directories of the last Set, in the order of their names
};

}  // namespace fenlux::refhost
