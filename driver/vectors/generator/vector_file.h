// Builds one test vector field by field, as bytes, as lines of a hex dump and as JSON.
#pragma once

#include <cstddef>
#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <vector>

namespace fenlux::vectors {

using Bytes = std::vector<std::uint8_t>;

// A record is written from its first byte to its last. Each call appends one field. `note` explains the value in the
// hex dump. Fields whose key begins with '-' are in the hex dump only, without the '-'.
class VectorFile {
 public:
  // `record` is the kind of record, which a decoder must know. `path` is relative to the folder of the vectors and
  // has no extension. `title` heads the hex dump.
  VectorFile(std::string record, std::string path, std::string title);

  VectorFile& U8(std::string_view key, std::uint8_t value, std::string_view note = {});
  VectorFile& U16(std::string_view key, std::uint16_t value, std::string_view note = {});
  VectorFile& U32(std::string_view key, std::uint32_t value, std::string_view note = {});
  // In JSON a hexadecimal string, because not every JSON reader keeps 64 bits.
  VectorFile& U64(std::string_view key, std::uint64_t value, std::string_view note = {});
  // In JSON a string of hexadecimal digits.
  VectorFile& Raw(std::string_view key, const Bytes& value, std::string_view note = {});
  // UTF-16 units without a NUL.
  VectorFile& Text(std::string_view key, std::u16string_view value, std::string_view note = {});
  // UTF-16 in a field of `size` bytes, truncated if necessary; the rest is 0.
  VectorFile& TextField(std::string_view key, std::u16string_view value, std::size_t size, std::string_view note = {});
  // `size` bytes of the value `filling`, not in JSON.
  VectorFile& Fill(std::size_t size, std::string_view note, std::uint8_t filling = 0);
  // The same up to the offset `end`.
  VectorFile& FillTo(std::size_t end, std::string_view note, std::uint8_t filling = 0);
  // JSON only.
  VectorFile& Note(std::string_view key, nlohmann::ordered_json value);
  // The same record under another path and title.
  VectorFile As(std::string newPath, std::string newTitle) const;
  // Sets the JSON to that of a record that a decoder refuses with `error`.
  VectorFile& Malformed(std::string_view error);
  // Changes one byte that was written before. For malformed records only, because it does not update the JSON.
  VectorFile& Patch(std::size_t offset, std::uint8_t value);
  // Truncates the record or pads it with zeros. For malformed records only.
  VectorFile& Resize(std::size_t size);

  const std::string& Record() const { return record; }
  const std::string& Path() const { return path; }
  const Bytes& Binary() const { return bytes; }
  // Offsets are decimal. Long runs of one value are abbreviated.
  std::string HexDump() const;
  std::string Json() const;

 private:
  struct Field {
    std::size_t offset;
    std::size_t size;
    std::string text;
  };

  void Append(const Bytes& value, std::string_view key, const nlohmann::ordered_json& json, std::string_view note);

  std::string record;
  std::string path;
  std::string title;
  Bytes bytes;
  std::vector<Field> fields;
  nlohmann::ordered_json json;
};

// "0x" and sixteen digits.
std::string Hexadecimal(std::uint64_t value);
std::string HexDigits(const Bytes& bytes);
Bytes Utf16(std::u16string_view text);
std::string Utf8(std::u16string_view text);

// The vectors of each kind, in the order of the index.
std::vector<VectorFile> ConnectVectors();
std::vector<VectorFile> RequestVectors();
std::vector<VectorFile> VersionReplyVectors();
std::vector<VectorFile> NotificationVectors();
std::vector<VectorFile> ReplyVectors();
std::vector<VectorFile> MalformedVectors();

}  // namespace fenlux::vectors
