// Reads through the stream, not through its buffer, which throws for a directory.
#include "refhost/base/file_bytes.h"

#include <array>
#include <boost/filesystem/operations.hpp>
#include <filesystem>
#include <fstream>

#include "refhost/base/platform/error_text.h"

namespace fenlux::refhost {
namespace {

namespace fs = boost::filesystem;

// `reason` is the system's; call it directly after the failure.
std::string Failure(const fs::path& file, const std::string& reason) {
  boost::system::error_code ignored;
  const bool isThere = fs::exists(file, ignored);
  return "cannot be read: " + reason + (isThere ? "; check its permissions" : "; check the path");
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
  std::ifstream stream(std::filesystem::path(file.native()), std::ios::binary);
  std::array<char, 65536> piece{};
  while (stream) {
    stream.read(piece.data(), piece.size());
    result.bytes.append(piece.data(), static_cast<std::size_t>(stream.gcount()));
  }
  if (!stream.eof()) return {{}, Failure(file, LastErrorText())};
  return result;
}

std::string WhyUnreadable(const fs::path& file) {
  std::string failure = DirectoryFailure(file);
  if (!failure.empty()) return failure;
  const std::ifstream stream(std::filesystem::path(file.native()), std::ios::binary);
  return stream ? std::string() : Failure(file, LastErrorText());
}

}  // namespace fenlux::refhost
