// A fanotify group whose events need no answer, and helpers to examine its marks.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/fanotify.h>
#include <sys/stat.h>

#include <cstdint>
#include <cstdio>
#include <fstream>
#include <map>
#include <optional>
#include <string>

#include "refhost/base/platform/descriptor_posix.h"
#include "refhost/base/platform/error_text.h"
#include "refhost/emulator/sources/kernel/event_paths.h"
#include "refhost/emulator/sources/kernel/fanotify_marks.h"

namespace fenlux::testing {

inline ino_t InodeOf(const std::string& path) {
  struct stat status {};
  return ::stat(path.c_str(), &status) == 0 ? status.st_ino : 0;
}

// The path established for a file that this process opens; empty if there is none.
inline std::optional<std::string> EstablishedPath(const refhost::EventPaths& paths, const std::string& file) {
  const refhost::Descriptor opened(::open(file.c_str(), O_RDONLY | O_CLOEXEC));
  EXPECT_TRUE(opened.Valid()) << file << ": " << refhost::LastErrorText();
  return opened.Valid() ? paths.PathOf(opened.Get()) : std::nullopt;
}

// Directories as EventPaths receives them; they must exist.
inline refhost::WatchedDirectories Watched(const std::vector<std::string>& names) {
  refhost::WatchedDirectories watched;
  for (const std::string& name : names) {
    const auto found = refhost::FindDirectory(name).directory;
    EXPECT_NE(found, nullptr) << name;
    if (found != nullptr) watched[found->identity] = {found->path, found};
  }
  return watched;
}

// Reports opens without blocking them, so that a test can open files in its marked directories.
class MarkGroup {
 public:
  static constexpr std::uint64_t kMask = FAN_OPEN;
  using Marks = std::map<ino_t, unsigned>;  // the mask of each marked inode

  // False if the machine does not allow fanotify.
  bool Valid() const { return group.Valid(); }
  int Get() const { return group.Get(); }

  Marks All() const {
    Marks marks;
    std::ifstream in("/proc/self/fdinfo/" + std::to_string(group.Get()));
    for (std::string line; std::getline(in, line);) {
      unsigned long inode = 0;
      unsigned mask = 0;
      if (std::sscanf(line.c_str(), "fanotify ino:%lx sdev:%*x mflags:%*x mask:%x", &inode, &mask) == 2) {
        marks[inode] = mask;
      }
    }
    return marks;
  }
  std::set<ino_t> Inodes() const {
    std::set<ino_t> inodes;
    for (const auto& [inode, mask] : All()) inodes.insert(inode);
    return inodes;
  }
  // Adds another kind of event to a mark. It lasts only as long as the mark itself.
  void Label(const std::string& directory) {
    EXPECT_EQ(::fanotify_mark(group.Get(), FAN_MARK_ADD, FAN_CLOSE_WRITE, AT_FDCWD, directory.c_str()), 0);
  }

 private:
  const refhost::Descriptor group{::fanotify_init(FAN_CLASS_NOTIF | FAN_CLOEXEC | FAN_NONBLOCK, O_RDONLY | O_CLOEXEC)};
};

}  // namespace fenlux::testing
