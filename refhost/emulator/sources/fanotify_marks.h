// The directories that a fanotify group watches, kept equal to the requested set.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "refhost/emulator/sources/event_paths.h"

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
  };
  // Watches exactly these directories. Marks that stay are renewed, so that a directory that was deleted and created
  // again is watched again.
  Change Set(const std::vector<std::string>& directories);
  // Removes every mark.
  void Clear();

 private:
  using Directories = std::map<FileIdentity, std::string>;

  void Collect(const std::string& directory, Directories& wanted, std::vector<std::string>& refused) const;
  std::string Mark(const std::string& directory) const;

  const int group;
  const std::uint64_t mask;
  const bool recursive;
  EventPaths& paths;
  Directories marked;
};

}  // namespace fenlux::refhost
