// The directories that a fanotify group watches, kept equal to the set that is wanted.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace fenlux::refhost {

// Marks single directories with their children, never a mount or a file system. One thread at a time.
class FanotifyMarks {
 public:
  // `groupDescriptor` is borrowed and outlives the marks. `eventMask` holds the events that are asked for.
  FanotifyMarks(int groupDescriptor, std::uint64_t eventMask, bool withSubdirectories)
      : group(groupDescriptor), mask(eventMask), recursive(withSubdirectories) {}

  // Why a directory cannot be watched; empty where it can: it must be absolute, exist, be a directory, and be neither
  // "/" nor "/tmp" by whatever name.
  static std::string Refusal(const std::string& directory);

  // What came of one change.
  struct Change {
    std::vector<std::string> added;
    std::vector<std::string> removed;
    std::vector<std::string> refused;  // "directory: reason"
  };
  // Makes exactly these directories the watched ones. Marks that stay are renewed, so that a directory that was
  // deleted and made again is watched again.
  Change Set(const std::vector<std::string>& directories);
  // Removes every mark.
  void Clear();

 private:
  // A directory by what it is, not by one of its names.
  using Identity = std::pair<dev_t, ino_t>;
  using Directories = std::map<Identity, std::string>;

  void Collect(const std::string& directory, Directories& wanted, std::vector<std::string>& refused) const;
  std::string Mark(const std::string& directory) const;

  const int group;
  const std::uint64_t mask;
  const bool recursive;
  Directories marked;
};

}  // namespace fenlux::refhost
