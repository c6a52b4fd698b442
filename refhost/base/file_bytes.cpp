// Checks for a directory before opening, because systems report different errors for it.
#include "refhost/base/file_bytes.h"

#include <array>
#include <boost/filesystem/operations.hpp>
#include <cstdio>

#include "refhost/base/platform/error_text.h"
#include "refhost/base/platform/file_opening.h"

namespace fenlux::refhost {
namespace {

namespace fs = boost::filesystem;

// `reason` is the system's. Call it directly after the failure.
std::string Failure(const fs::path& file, const std::string& reason) {
  boost::system::error_code ignored;
  if (!fs::exists(file, ignored)) return "cannot be read: " + reason + "; check the path";
  const bool isRegular = fs::is_regular_file(file, ignored);
  return "cannot be read: " + reason + (isRegular ? "; check its permissions" : "; name a regular file");
}

std::string DirectoryFailure(const fs::path& file) {
  boost::system::error_code ignored;
  if (!fs::is_directory(file, ignored)) return {};
  return "cannot be read: it is a directory; name a file";
}

}  // namespace

FileBytes ReadFileBytes(const fs::path& file) {
  FileBytes result{{}, DirectoryFailure(file)};
  if (!result.failure.empty()) return result;
  const OpenedFile opened = OpenForReading(file);
  if (opened.stream == nullptr) return {{}, Failure(file, opened.reason)};
  std::array<char, 65536> piece{};
  while (const std::size_t count = std::fread(piece.data(), 1, piece.size(), opened.stream.get())) {
    result.bytes.append(piece.data(), count);
  }
  if (std::ferror(opened.stream.get()) != 0) return {{}, Failure(file, LastErrorText())};
  return result;
}

std::string WhyUnreadable(const fs::path& file) {
  std::string failure = DirectoryFailure(file);
  if (!failure.empty()) return failure;
  const OpenedFile opened = OpenForReading(file);
  return opened.stream == nullptr ? Failure(file, opened.reason) : std::string();
}

std::uint64_t FileSizeOrZero(const fs::path& file) {
  boost::system::error_code error;
  const std::uintmax_t size = fs::file_size(file, error);
  return error ? 0 : size;
}

}  // namespace fenlux::refhost
