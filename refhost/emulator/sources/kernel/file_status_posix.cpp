// Reads the status of files, and opens them by their handles.
#include "refhost/emulator/sources/kernel/file_status.h"

#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <climits>
#include <new>

namespace fenlux::refhost {
namespace {

std::optional<FileStatus> ReadStatus(int directory, const char* path, int flags) {
  struct statx status {};
  constexpr unsigned kWanted = STATX_INO | STATX_NLINK | STATX_MNT_ID;
  // Use the kernel's cached status, so that a file server cannot delay an event.
  if (::statx(directory, path, flags | AT_STATX_DONT_SYNC, kWanted, &status) != 0) {
    ThrowIfLacking(errno);
    return std::nullopt;
  }
  FileStatus result;
  result.identity = {::makedev(status.stx_dev_major, status.stx_dev_minor), status.stx_ino};
  result.names = status.stx_nlink;
  if ((status.stx_mask & STATX_MNT_ID) != 0) result.mount = status.stx_mnt_id;
  return result;
}

}  // namespace

void ThrowIfLacking(int error) {
  if (error == EMFILE || error == ENFILE) throw NoDescriptors();
  if (error == ENOMEM) throw std::bad_alloc();
}

std::optional<FileStatus> StatusOf(int file) { return ReadStatus(file, "", AT_EMPTY_PATH); }

std::optional<FileStatus> StatusOf(const std::string& path) {
  return ReadStatus(AT_FDCWD, path.c_str(), AT_SYMLINK_NOFOLLOW);
}

OpenFileLinks::OpenFileLinks() : directory(::open("/proc/self/fd", O_PATH | O_DIRECTORY | O_CLOEXEC)) {
  if (!directory.Valid()) ThrowIfLacking(errno);
}

std::string OpenFileLinks::PathOf(int file) const {
  std::array<char, 16> name{};  // the longest number has 11 characters
  std::to_chars(name.data(), name.data() + name.size(), file);
  std::array<char, PATH_MAX> text;
  const ssize_t length = ::readlinkat(directory.Get(), name.data(), text.data(), text.size());
  if (length < 0) ThrowIfLacking(errno);
  if (length <= 0 || text.front() != '/') return {};
  return {text.data(), static_cast<std::size_t>(length)};
}

FileHandle::FileHandle(int file) {
  auto* const handle = reinterpret_cast<struct file_handle*>(memory.data());
  handle->handle_bytes = kMaxSize;
  int mount = 0;
  valid = ::name_to_handle_at(file, "", handle, &mount, AT_EMPTY_PATH) == 0;
  if (!valid) ThrowIfLacking(errno);
}

Descriptor FileHandle::Open(int directoryOnMount) const {
  // Opening a handle needs a descriptor that was not opened with O_PATH.
  const Descriptor directory(::openat(directoryOnMount, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!directory.Valid()) {
    ThrowIfLacking(errno);
    return {};
  }
  alignas(struct file_handle) auto copy = memory;  // the call's parameter is not const
  Descriptor file(
      ::open_by_handle_at(directory.Get(), reinterpret_cast<struct file_handle*>(copy.data()), O_PATH | O_CLOEXEC));
  if (!file.Valid()) ThrowIfLacking(errno);
  return file;
}

}  // namespace fenlux::refhost
