// Renames and removes only capture files, so that a mistyped name cannot destroy another file.
#include "refhost/capture/recording/file_rotation.h"

#include <array>
#include <boost/endian/conversion.hpp>
#include <boost/filesystem/operations.hpp>
#include <filesystem>
#include <fstream>

#include "refhost/capture/format/pcapng.h"

namespace fenlux::capture {
namespace {

namespace fs = boost::filesystem;

// An empty file counts as a capture: its disk may have been full from the start.
bool IsCaptureFile(const fs::path& file) {
  std::ifstream stream(std::filesystem::path(file.native()), std::ios::binary);
  std::array<char, 4> begin{};
  stream.read(begin.data(), begin.size());
  if (stream.gcount() == 0) return stream.eof();
  const auto* const bytes = reinterpret_cast<const std::uint8_t*>(begin.data());
  return stream.gcount() == 4 && boost::endian::load_little_u32(bytes) == pcapng::kSectionHeader;
}

}  // namespace

fs::path FileRotation::NameOf(std::uint32_t age) const {
  if (age == 0) return current;
  return current.parent_path() /
         fs::path(current.stem()).concat("." + std::to_string(age)).concat(current.extension().native());
}

std::string FileRotation::FindObstacle() const {
  for (std::uint32_t age = 0; age < count; ++age) {
    const fs::path name = NameOf(age);
    boost::system::error_code error;
    const fs::file_type type = fs::symlink_status(name, error).type();
    if (type == fs::file_not_found) {
      if (age > 0) return {};  // the files after a gap are not renamed
      continue;
    }
    if (type == fs::status_error) return name.string() + " cannot be examined: " + error.message();
    if (type != fs::regular_file) return name.string() + " exists and is not a regular file";
    if (!IsCaptureFile(name)) return name.string() + " exists and is not a capture; it is not replaced";
  }
  return {};
}

std::string FileRotation::Shift() const {
  boost::system::error_code error;
  std::uint32_t age = 0;  // of the first name that is free
  while (age < count && fs::symlink_status(NameOf(age), error).type() != fs::file_not_found) ++age;
  if (age == count) {
    --age;
    if (!fs::remove(NameOf(age), error) && error) {
      return NameOf(age).string() + " cannot be removed: " + error.message();
    }
  }
  for (; age > 0; --age) {
    fs::rename(NameOf(age - 1), NameOf(age), error);
    if (error) return NameOf(age - 1).string() + " cannot be renamed: " + error.message();
  }
  return {};
}

}  // namespace fenlux::capture
