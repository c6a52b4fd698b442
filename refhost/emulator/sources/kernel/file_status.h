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

// Thrown if something cannot be found out for lack of file descriptors, which says nothing about the file.
class NoDescriptors : public std::exception {
 public:
  const char* what() const noexcept override { return "no file descriptors left"; }
};

// Throws NoDescriptors or std::bad_alloc if this value of errno means a lack of descriptors or memory.
void ThrowIfLacking(int error);

// Device and inode: identifies a file or directory whatever its name, as long as it exists.
using FileIdentity = std::pair<dev_t, ino_t>;

struct FileStatus {
  FileIdentity identity;
  std::uint32_t names = 0;             // how many the file has
  std::optional<std::uint64_t> mount;  // by which it was opened or named
};

// Nothing if the system gives none. All of these throw as ThrowIfLacking does.
std::optional<FileStatus> StatusOf(int file);
// Of the name itself if it is a symbolic link.
std::optional<FileStatus> StatusOf(const std::string& path);
// What /proc shows for an open file; empty if that is not an absolute path, or longer than the system can show.
std::string LinkOf(int file);

// Finds a file again, even under another name.
class FileHandle {
 public:
  // Borrows the descriptor. Throws as ThrowIfLacking does.
  explicit FileHandle(int file);

  // False if the file system has no handles.
  bool Valid() const { return valid; }
  // Opens the file with O_PATH as it is seen on the mount of this directory. None if it is gone or not seen there;
  // errno tells. Throws as ThrowIfLacking does.
  Descriptor Open(int directoryOnMount) const;

 private:
  static constexpr std::size_t kMaxSize = 128;  // the kernel's maximum

  // The handle, and the room for its bytes, which the kernel's type leaves out.
  alignas(struct file_handle) std::array<unsigned char, sizeof(struct file_handle) + kMaxSize> memory{};
  bool valid = false;
};

}  // namespace fenlux::refhost
