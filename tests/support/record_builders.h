// Builders for driver records: notifications by field, everything else as golden bytes.
#pragma once

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace fenlux::testing {

using Bytes = std::vector<std::uint8_t>;

// Parses hexadecimal digits; spaces are ignored: "e3 4a a3 29".
Bytes FromHex(std::string_view digits);

// An expected record: `size` bytes of the fake buffers' filling, overwritten in places.
class Golden {
 public:
  explicit Golden(std::size_t size, std::uint8_t filling = 0xCD) : bytes(size, filling) {}
  Golden& Hex(std::size_t offset, std::string_view digits);
  Golden& Put(std::size_t offset, const Bytes& replacement);
  const Bytes& Get() const { return bytes; }

 private:
  Bytes bytes;
};

// A request of 65561 bytes that starts with these digits (magic, command, payload); the rest is untouched filling.
Bytes GoldenRequest(std::string_view digits);

// Compares bytes; a failure shows the rows that differ.
::testing::AssertionResult SameBytes(const Bytes& expected, const Bytes& actual);

// UTF-16 text as a notification contains it, by default with its NUL.
Bytes Utf16(std::u16string_view text, bool terminated = true);

// Builds a notification of the driver. Fields that are not set are zero; every setter returns the builder.
class NotificationBuilder {
 public:
  explicit NotificationBuilder(std::uint32_t code, std::uint64_t processId = 0x1234);

  NotificationBuilder& ProcessId(std::uint64_t id) { return U64(12, id); }
  NotificationBuilder& Variant(std::uint8_t value) { return U8(24, value); }
  NotificationBuilder& ConditionA(std::uint8_t value) { return U8(25, value); }
  NotificationBuilder& ConditionB(std::uint8_t value) { return U8(27, value); }
  NotificationBuilder& ConditionC(std::uint8_t value) { return U8(28, value); }
  NotificationBuilder& Oplock(std::uint8_t value) { return U8(29, value); }
  // Texts get a NUL; their byte length includes it.
  NotificationBuilder& Item1(std::u16string_view text);
  NotificationBuilder& Item2(std::u16string_view text);
  NotificationBuilder& Item3(Bytes bytes);
  NotificationBuilder& Item4(std::u16string_view text);
  // Sets a length field without changing the bytes after the fixed part.
  NotificationBuilder& Item1Size(std::uint32_t size);
  NotificationBuilder& Item2Size(std::uint32_t size);
  NotificationBuilder& Item3Size(std::uint32_t size);
  NotificationBuilder& Item4Present(std::uint32_t value) { return U32(42, value); }
  NotificationBuilder& IdentityPresent(std::uint32_t value) { return U32(46, value); }
  // Sets everything after the fixed part, replacing the items.
  NotificationBuilder& Tail(Bytes bytes);

  NotificationBuilder& U8(std::size_t offset, std::uint8_t value);
  NotificationBuilder& U16(std::size_t offset, std::uint16_t value);
  NotificationBuilder& U32(std::size_t offset, std::uint32_t value);
  NotificationBuilder& U64(std::size_t offset, std::uint64_t value);
  NotificationBuilder& Put(std::size_t offset, const Bytes& bytes);

  Bytes Build() const;

 private:
  Bytes fixed;
  Bytes item1, item2, item3, item4;
};

}  // namespace fenlux::testing
