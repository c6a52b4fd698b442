// Reads through the stream, not through its buffer, which throws for a directory.
#include "refhost/base/file_bytes.h"

#include <array>
#include <filesystem>
#include <fstream>

namespace fenlux::refhost {

std::optional<std::string> ReadFileBytes(const boost::filesystem::path& file) {
  std::ifstream stream(std::filesystem::path(file.native()), std::ios::binary);
  std::string bytes;
  std::array<char, 65536> piece{};
  while (stream) {
    stream.read(piece.data(), piece.size());
    bytes.append(piece.data(), static_cast<std::size_t>(stream.gcount()));
  }
  if (!stream.eof()) return std::nullopt;
  return bytes;
}

}  // namespace fenlux::refhost
