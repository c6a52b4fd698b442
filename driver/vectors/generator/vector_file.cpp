// Appends fields and renders what was appended.
#include "driver/vectors/generator/vector_file.h"

#include <algorithm>
#include <cstdio>
#include <stdexcept>

namespace fenlux::vectors {
namespace {

constexpr std::size_t kRow = 16;         // bytes in a line of the hex dump
constexpr std::size_t kShortenRun = 32;  // longer runs of one value are abbreviated

template <class Integer>
Bytes LittleEndian(Integer value) {
  Bytes out;
  for (std::size_t i = 0; i < sizeof(Integer); ++i) out.push_back(static_cast<std::uint8_t>(value >> (8 * i)));
  return out;
}

bool IsHighSurrogate(char16_t unit) { return unit >= 0xD800 && unit < 0xDC00; }
bool IsLowSurrogate(char16_t unit) { return unit >= 0xDC00 && unit < 0xE000; }

void AppendUtf8(std::string& out, std::uint32_t character) {
  const auto put = [&out](std::uint32_t byte) { out += static_cast<char>(byte); };
  if (character < 0x80) {
    put(character);
  } else if (character < 0x800) {
    put(0xC0 | character >> 6);
    put(0x80 | (character & 0x3F));
  } else if (character < 0x10000) {
    put(0xE0 | character >> 12);
    put(0x80 | (character >> 6 & 0x3F));
    put(0x80 | (character & 0x3F));
  } else {
    put(0xF0 | character >> 18);
    put(0x80 | (character >> 12 & 0x3F));
    put(0x80 | (character >> 6 & 0x3F));
    put(0x80 | (character & 0x3F));
  }
}

// One line of the dump.
std::string Line(std::size_t offset, const std::string& shown, const std::string& text) {
  char place[16];
  std::snprintf(place, sizeof place, "%6zu  ", offset);
  std::string line = place + shown;
  if (!text.empty()) line.append(shown.size() < 3 * kRow ? 3 * kRow - shown.size() : 1, ' ') += text;
  while (!line.empty() && line.back() == ' ') line.pop_back();
  return line + '\n';
}

}  // namespace

std::string Hexadecimal(std::uint64_t value) {
  char text[24];
  std::snprintf(text, sizeof text, "0x%016llx", static_cast<unsigned long long>(value));
  return text;
}

std::string HexDigits(const Bytes& bytes) {
  std::string out;
  char text[4];
  for (const std::uint8_t byte : bytes) {
    std::snprintf(text, sizeof text, "%02x", byte);
    out += text;
  }
  return out;
}

Bytes Utf16(std::u16string_view text) {
  Bytes out;
  for (const char16_t unit : text) {
    for (const std::uint8_t byte : LittleEndian(static_cast<std::uint16_t>(unit))) out.push_back(byte);
  }
  return out;
}

std::string Utf8(std::u16string_view text) {
  std::string out;
  for (std::size_t i = 0; i < text.size(); ++i) {
    std::uint32_t character = text[i];
    if (IsHighSurrogate(text[i])) {
      if (i + 1 == text.size() || !IsLowSurrogate(text[i + 1])) throw std::logic_error("a lone surrogate");
      character = 0x10000 + ((character - 0xD800) << 10) + (text[++i] - 0xDC00u);
    }
    AppendUtf8(out, character);
  }
  return out;
}

VectorFile::VectorFile(std::string recordName, std::string relativePath, std::string dumpTitle)
    : record(std::move(recordName)), path(std::move(relativePath)), title(std::move(dumpTitle)) {
  json["record"] = record;
}

void VectorFile::Append(const Bytes& value, std::string_view key, const nlohmann::ordered_json& shown,
                        std::string_view note) {
  const bool hidden = !key.empty() && key.front() == '-';
  const std::string name(hidden ? key.substr(1) : key);
  if (!hidden) json[name] = shown;
  std::string text = name;
  if (!shown.is_null()) {
    std::string rendered = shown.is_string() ? shown.get<std::string>() : shown.dump();
    constexpr std::size_t kMaxShown = 60;
    if (rendered.size() > kMaxShown) rendered = rendered.substr(0, kMaxShown) + "...";
    text += ": " + rendered;
  }
  if (!note.empty()) text += " (" + std::string(note) + ")";
  fields.push_back({bytes.size(), value.size(), text});
  bytes.insert(bytes.end(), value.begin(), value.end());
}

VectorFile& VectorFile::U8(std::string_view key, std::uint8_t value, std::string_view note) {
  Append({value}, key, value, note);
  return *this;
}

VectorFile& VectorFile::U16(std::string_view key, std::uint16_t value, std::string_view note) {
  Append(LittleEndian(value), key, value, note);
  return *this;
}

VectorFile& VectorFile::U32(std::string_view key, std::uint32_t value, std::string_view note) {
  Append(LittleEndian(value), key, value, note);
  return *this;
}

VectorFile& VectorFile::U64(std::string_view key, std::uint64_t value, std::string_view note) {
  Append(LittleEndian(value), key, Hexadecimal(value), note);
  return *this;
}

VectorFile& VectorFile::Raw(std::string_view key, const Bytes& value, std::string_view note) {
  Append(value, key, HexDigits(value), note);
  return *this;
}

VectorFile& VectorFile::Text(std::string_view key, std::u16string_view value, std::string_view note) {
  Append(Utf16(value), key, Utf8(value), note);
  return *this;
}

VectorFile& VectorFile::TextField(std::string_view key, std::u16string_view value, std::size_t size,
                                  std::string_view note) {
  const std::u16string_view kept = value.substr(0, size / 2);
  Text(key, kept, note);
  if (kept.size() < size / 2) Fill(size - 2 * kept.size(), "NUL and rest of the field");
  return *this;
}

VectorFile& VectorFile::Fill(std::size_t size, std::string_view note, std::uint8_t filling) {
  fields.push_back({bytes.size(), size, std::string(note)});
  bytes.insert(bytes.end(), size, filling);
  return *this;
}

VectorFile& VectorFile::FillTo(std::size_t end, std::string_view note, std::uint8_t filling) {
  if (end < bytes.size()) throw std::logic_error(path + ": already beyond offset " + std::to_string(end));
  return end == bytes.size() ? *this : Fill(end - bytes.size(), note, filling);
}

VectorFile& VectorFile::Note(std::string_view key, nlohmann::ordered_json value) {
  json[std::string(key)] = std::move(value);
  return *this;
}

VectorFile VectorFile::As(std::string newPath, std::string newTitle) const {
  VectorFile copy = *this;
  copy.path = std::move(newPath);
  copy.title = std::move(newTitle);
  return copy;
}

VectorFile& VectorFile::Malformed(std::string_view error) {
  json.clear();
  json["record"] = record;
  json["error"] = error;
  return *this;
}

VectorFile& VectorFile::Patch(std::size_t offset, std::uint8_t value) {
  bytes.at(offset) = value;
  for (Field& field : fields) {
    if (offset < field.offset || offset >= field.offset + field.size) continue;
    constexpr const char* kMark = " (wrong on purpose)";
    if (field.text.ends_with(kMark)) continue;
    field.text = field.text.substr(0, field.text.find(':')) + kMark;
  }
  return *this;
}

VectorFile& VectorFile::Resize(std::size_t size) {
  while (!fields.empty() && fields.back().offset >= size) fields.pop_back();
  if (!fields.empty() && fields.back().offset + fields.back().size > size) {
    fields.back().size = size - fields.back().offset;
  }
  if (size > bytes.size()) fields.push_back({bytes.size(), size - bytes.size(), "too many"});
  bytes.resize(size);
  return *this;
}

std::string VectorFile::HexDump() const {
  std::string out = "# " + title + "\n# " + std::to_string(bytes.size()) + " bytes; offsets are decimal\n";
  const auto at = [this](std::size_t i) { return bytes.begin() + static_cast<std::ptrdiff_t>(i); };
  for (const Field& field : fields) {
    std::string text = field.text;
    const std::size_t end = field.offset + field.size;
    for (std::size_t offset = field.offset; offset < end;) {
      // How many bytes from here repeat with the given period, which is one byte or one row.
      const auto repeated = [&](std::size_t period) {
        if (end - offset <= period) return end - offset;
        return period + static_cast<std::size_t>(std::mismatch(at(offset + period), at(end), at(offset)).first -
                                                 at(offset + period));
      };
      std::size_t count = repeated(1);
      std::string shown;
      if (count > kShortenRun) {
        shown = HexDigits({bytes[offset]}) + " ... " + std::to_string(count) + " times";
        out += Line(offset, shown, text);
      } else {
        count = std::min(kRow, end - offset);
        for (std::size_t i = offset; i < offset + count; ++i) shown += HexDigits({bytes[i]}) + ' ';
        out += Line(offset, shown, text);
        const std::size_t repeats = repeated(kRow) / kRow;
        if (repeats > 3) {
          out += Line(offset + kRow, "... these 16 bytes " + std::to_string(repeats - 1) + " times more", {});
          count = repeats * kRow;
        }
      }
      text.clear();
      offset += count;
    }
  }
  return out;
}

std::string VectorFile::Json() const { return json.dump(2, ' ', true) + "\n"; }

}  // namespace fenlux::vectors
