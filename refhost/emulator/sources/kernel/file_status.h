// What the kernel's event source reads about files: their identity, names, mounts and handles.
#pragma once

#include <fcntl.h>
#include <sys/types.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <optional>
#include <string>
#include <utility>

#include "refhost/base/platform/descriptor_posix.h"

namespace fenlux::refhost {

// Thrown if a query fails for lack of file descriptors, which says nothing about the file.
class NoDescriptors : public std::exception {
 public:
  const char* what() const noexcept override { return "no file descriptors left"; }
};

// Throws NoDescriptors or std::bad_alloc if `error`, a value of errno, means a lack of descriptors or memory.
void ThrowIfLacking(int error);

// Device and inode: identifies a file or directory whatever its name, as long as it exists.
using FileIdentity = std::pair<dev_t, ino_t>;

struct FileStatus {
  FileIdentity identity;
  std::uint32_t names = 0;             // the number of names
  std::optional<std::uint64_t> mount;  // through which it was opened or named
};

// Nullopt if the system returns no status. All of these throw like ThrowIfLacking.
std::optional<FileStatus> StatusOf(int file);
// Does not follow a symbolic link.
std::optional<FileStatus> StatusOf(const std::string& path);

// The paths that /proc shows for this process's open files. Any thread.
class OpenFileLinks {
 public:
  // Throws like ThrowIfLacking.
  OpenFileLinks();
  // Empty if the path is not absolute, or too long for the system, or if /proc is not mounted. Throws like
  // ThrowIfLacking.
  std::string PathOf(int file) const;

 private:
  const Descriptor directory;  // held open, because looking up /proc/self/fd takes longer than the rest
};

// Finds a file again, even under another name.
class FileHandle {
 public:
  // Borrows the descriptor. Throws like ThrowIfLacking.
  explicit FileHandle(int file);

  // False if the file system has no handles.
  bool Valid() const { return valid; }
  // Opens the file with O_PATH as seen on the mount of this directory. If it was deleted or is not visible there,
  // returns an invalid descriptor and sets errno. Throws like ThrowIfLacking.
  Descriptor Open(int directoryOnMount) const;

 private:
  static constexpr std::size_t kMaxSize = 128;  // the kernel's maximum

  // The handle, with the room for its bytes that the kernel's type leaves out.
  alignas(struct file_handle) std::array<unsigned char, sizeof(struct file_handle) + kMaxSize> memory{};
  bool valid = false;
};

}  // namespace fenlux::refhost
