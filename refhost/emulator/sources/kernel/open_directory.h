// An open directory, found by its name once. Later operations use this directory, even if its name leads to another one
// in the meantime.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "refhost/base/platform/descriptor_posix.h"
#include "refhost/emulator/sources/kernel/file_status.h"

namespace fenlux::refhost {

// As long as this exists, its mount cannot be unmounted and keeps its id.
struct OpenDirectory {
  Descriptor descriptor;  // opened with O_PATH
  FileIdentity identity;
  std::uint64_t mountId;
  std::string path;  // as /proc shows it
};

// A directory to be watched, or the reason why there is none.
struct FoundDirectory {
  std::shared_ptr<const OpenDirectory> directory;
  std::string refusal;  // why it cannot be watched; empty if it can
};

// Why a directory is never watched, whatever its name; empty if it may be.
std::string NeverWatched(const FileIdentity& identity);

// The directory of this absolute name, with symbolic links resolved. Throws std::bad_alloc and NoDescriptors.
FoundDirectory FindDirectory(const std::string& name);
// Likewise for a name in a directory; does not follow symbolic links. A name that does not exist is not a refusal.
FoundDirectory FindDirectory(const OpenDirectory& parent, const std::string& name);

// The names of the subdirectories. Sets `refusal` if not all of them can be read. Throws
// std::bad_alloc and NoDescriptors.
std::vector<std::string> DirectoriesIn(const OpenDirectory& parent, std::string& refusal);

}  // namespace fenlux::refhost
