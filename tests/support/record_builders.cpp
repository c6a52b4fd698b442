// Builds records from named fields and compares them with golden bytes.
#include "tests/support/record_builders.h"

#include <algorithm>
#include <cstdio>
#include <sstream>
#include <stdexcept>
#include <utility>

#include "kdi/driver_records.h"

namespace fenlux::testing {
namespace {

int DigitOf(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  throw std::logic_error(std::string("not a hexadecimal digit: ") + c);
}

constexpr std::size_t kRow = 16;
constexpr std::size_t kShownRows = 8;

std::string Row(const Bytes& bytes, std::size_t offset) {
  std::string out;
  char text[4];
  for (std::size_t i = offset; i < std::min(offset + kRow, bytes.size()); ++i) {
    std::snprintf(text, sizeof text, "%02x ", bytes[i]);
    out += text;
  }
  return out;
}

bool RowDiffers(const Bytes& one, const Bytes& other, std::size_t offset) {
  for (std::size_t i = offset; i < offset + kRow; ++i) {
    const bool inOne = i < one.size();
    const bool inOther = i < other.size();
    if (inOne != inOther || (inOne && one[i] != other[i])) return true;
  }
  return false;
}

}  // namespace

Bytes FromHex(std::string_view digits) {
  Bytes bytes;
  int high = -1;
  for (const char c : digits) {
    if (c == ' ') continue;
    if (high < 0) {
      high = DigitOf(c);
    } else {
      bytes.push_back(static_cast<std::uint8_t>(high << 4 | DigitOf(c)));
      high = -1;
    }
  }
  if (high >= 0) throw std::logic_error("odd number of digits");
  return bytes;
}

Golden& Golden::Hex(std::size_t offset, std::string_view digits) { return Put(offset, FromHex(digits)); }

Golden& Golden::Put(std::size_t offset, const Bytes& replacement) {
  if (offset + replacement.size() > bytes.size()) throw std::logic_error("past the end of the golden record");
  std::copy(replacement.begin(), replacement.end(), bytes.begin() + static_cast<std::ptrdiff_t>(offset));
  return *this;
}

Bytes GoldenRequest(std::string_view digits) { return Golden(65561).Hex(0, digits).Get(); }

::testing::AssertionResult SameBytes(const Bytes& expected, const Bytes& actual) {
  if (expected == actual) return ::testing::AssertionSuccess();
  std::ostringstream out;
  out << "expected " << expected.size() << " bytes, got " << actual.size() << '\n';
  std::size_t shown = 0;
  for (std::size_t offset = 0; offset < std::max(expected.size(), actual.size()); offset += kRow) {
    if (!RowDiffers(expected, actual, offset)) continue;
    if (++shown > kShownRows) {
      out << "  ...\n";
      break;
    }
    out << "  at " << offset << ":\n    expected " << Row(expected, offset) << "\n    actual   " << Row(actual, offset)
        << '\n';
  }
  return ::testing::AssertionFailure() << out.str();
}

Bytes Utf16(std::u16string_view text, bool terminated) {
  Bytes bytes;
  const auto put = [&bytes](std::uint32_t unit) {
    bytes.push_back(static_cast<std::uint8_t>(unit));
    bytes.push_back(static_cast<std::uint8_t>(unit >> 8));
  };
  for (const char16_t unit : text) put(unit);
  if (terminated) put(0);
  return bytes;
}

NotificationBuilder::NotificationBuilder(std::uint32_t code, std::uint64_t processId)
    : fixed(records::kNotificationFixedSize, 0) {
  U32(20, code);
  U64(12, processId);
}

NotificationBuilder& NotificationBuilder::Item1(std::u16string_view text) {
  item1 = Utf16(text);
  return Item1Size(static_cast<std::uint32_t>(item1.size()));
}

NotificationBuilder& NotificationBuilder::Item2(std::u16string_view text) {
  item2 = Utf16(text);
  return Item2Size(static_cast<std::uint32_t>(item2.size()));
}

NotificationBuilder& NotificationBuilder::Item3(Bytes bytes) {
  item3 = std::move(bytes);
  return Item3Size(static_cast<std::uint32_t>(item3.size()));
}

NotificationBuilder& NotificationBuilder::Item4(std::u16string_view text) {
  item4 = Utf16(text);
  return Item4Present(1);
}

NotificationBuilder& NotificationBuilder::Item1Size(std::uint32_t size) { return U32(30, size); }
NotificationBuilder& NotificationBuilder::Item2Size(std::uint32_t size) { return U32(34, size); }
NotificationBuilder& NotificationBuilder::Item3Size(std::uint32_t size) { return U32(38, size); }

NotificationBuilder& NotificationBuilder::Tail(Bytes bytes) {
  item1 = std::move(bytes);
  item2.clear();
  item3.clear();
  item4.clear();
  return *this;
}

NotificationBuilder& NotificationBuilder::U8(std::size_t offset, std::uint8_t value) {
  fixed.at(offset) = value;
  return *this;
}

NotificationBuilder& NotificationBuilder::U16(std::size_t offset, std::uint16_t value) {
  U8(offset, static_cast<std::uint8_t>(value));
  return U8(offset + 1, static_cast<std::uint8_t>(value >> 8));
}

NotificationBuilder& NotificationBuilder::U32(std::size_t offset, std::uint32_t value) {
  for (std::size_t i = 0; i < 4; ++i) U8(offset + i, static_cast<std::uint8_t>(value >> (8 * i)));
  return *this;
}

NotificationBuilder& NotificationBuilder::U64(std::size_t offset, std::uint64_t value) {
  for (std::size_t i = 0; i < 8; ++i) U8(offset + i, static_cast<std::uint8_t>(value >> (8 * i)));
  return *this;
}

NotificationBuilder& NotificationBuilder::Put(std::size_t offset, const Bytes& bytes) {
  for (std::size_t i = 0; i < bytes.size(); ++i) U8(offset + i, bytes[i]);
  return *this;
}

Bytes NotificationBuilder::Build() const {
  Bytes message = fixed;
  for (const Bytes* item : {&item1, &item2, &item3, &item4}) message.insert(message.end(), item->begin(), item->end());
  return message;
}

}  // namespace fenlux::testing
