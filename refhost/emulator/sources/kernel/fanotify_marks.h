// The directories that a fanotify group watches, kept equal to the requested set.
#pragma once

#include <cstdint>
#include <ctime>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "refhost/emulator/driver/shared/event_source.h"
#include "refhost/emulator/sources/kernel/event_paths.h"

namespace fenlux::refhost {

// Marks single directories and their children, never a mount or a file system. One thread at a time.
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
  // again is watched again.
  Change Set(const std::vector<std::string>& directories);
  // Looks whether the names of the last Set still stand for what is watched: watches a directory that was created
  // again under such a name and, if it watches subdirectories, new ones. A directory that was renamed or moved stays
  // watched until the next Set.
  Change Renew();
  // How each directory of the last Set is now.
  const std::vector<WatchState>& States() const { return states; }
  // Removes every mark of the group. Any thread.
  static void RemoveAll(int groupDescriptor);

 private:
  struct Watched {
    std::string path;
    // When the directory last changed, as far as that tells whether it changed since: a change within the same tick of
    // the kernel's clock leaves it as it is. Nothing: it may have.
    std::optional<timespec> changed;
    bool astray = false;  // its path does not lead to it any more
  };
  using Directories = std::map<FileIdentity, Watched>;

  enum class Scope { kAll, kUnwatched };

  // Adds the directory and, if they are wanted, those below it; without those that are watched and what is below them
  // if only the others are asked for.
  void Collect(const std::string& directory, Scope scope, Directories& wanted, std::vector<std::string>& refused) const;
  void CollectBelow(const std::string& directory, Scope scope, Directories& wanted,
                    std::vector<std::string>& refused) const;
  // Removes from `wanted` what cannot be marked.
  WatchedDirectories Prepare(Directories& wanted, Change& change) const;
  void MarkAll(const Directories& wanted, Change& change, Directories& kept) const;
  std::string Mark(const std::string& directory) const;
  // Whether the path leads to a directory that is watched, maybe under another name.
  bool IsWatched(const std::string& path) const;
  bool IsWatched(const FileIdentity& identity) const;
  // Whether the directory has changed since the last call; sets `lost` if its path leads elsewhere.
  bool Changed(const FileIdentity& identity, Watched& directory, std::string& lost) const;
  // Notes which directories of the last Set are watched, and why the others are not.
  // Without `alsoWatched`, those that were watched still are.
  void NoteStates(const std::vector<std::string>& refused, bool alsoWatched);

  const int group;
  const std::uint64_t mask;
  const bool recursive;
  EventPaths& paths;
  Directories marked;
  std::vector<WatchState> states;  // of the directories of the last Set, in the order of their names
};

}  // namespace fenlux::refhost
