// Driver records as a test writes and compares them: notifications by field, everything else as golden bytes.
#pragma once

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace fenlux::testing {

using Bytes = std::vector<std::uint8_t>;

// Bytes written as hexadecimal digits, blanks between them as one likes: "e3 4a a3 29".
Bytes FromHex(std::string_view digits);

// A record to compare with: `size` bytes of the fake buffers' filling, and what is put over them.
class Golden {
 public:
  explicit Golden(std::size_t size, std::uint8_t filling = 0xCD) : bytes(size, filling) {}
  Golden& Hex(std::size_t offset, std::string_view digits);
  Golden& Put(std::size_t offset, const Bytes& replacement);
  const Bytes& Get() const { return bytes; }

 private:
  Bytes bytes;
};

// A request of 65561 bytes that begins with these digits (magic, command and payload) and is untouched behind them.
Bytes GoldenRequest(std::string_view digits);

// Equal, or the rows in which they differ.
::testing::AssertionResult SameBytes(const Bytes& expected, const Bytes& actual);

// UTF-16 text with its NUL, as it lies in a notification.
Bytes Utf16(std::u16string_view text, bool terminated = true);

// A notification of the driver. What is not set is zero; every setter writes the field and returns the builder.
class NotificationBuilder {
 public:
  explicit NotificationBuilder(std::uint32_t code, std::uint64_t processId = 0x1234);

  NotificationBuilder& ProcessId(std::uint64_t id) { return U64(12, id); }
  NotificationBuilder& Variant(std::uint8_t value) { return U8(24, value); }
  NotificationBuilder& ConditionA(std::uint8_t value) { return U8(25, value); }
  NotificationBuilder& ConditionB(std::uint8_t value) { return U8(27, value); }
  NotificationBuilder& ConditionC(std::uint8_t value) { return U8(28, value); }
  NotificationBuilder& Oplock(std::uint8_t value) { return U8(29, value); }
  // Item texts get their NUL and their byte length (the NUL counted).
  NotificationBuilder& Item1(std::u16string_view text);
  NotificationBuilder& Item2(std::u16string_view text);
  NotificationBuilder& Item3(Bytes bytes);
  NotificationBuilder& Item4(std::u16string_view text);
  // Length fields as they are, whatever follows the fixed part.
  NotificationBuilder& Item1Size(std::uint32_t size);
  NotificationBuilder& Item2Size(std::uint32_t size);
  NotificationBuilder& Item3Size(std::uint32_t size);
  NotificationBuilder& Item4Present(std::uint32_t value) { return U32(42, value); }
  NotificationBuilder& IdentityPresent(std::uint32_t value) { return U32(46, value); }
  // Everything behind the fixed part, in place of the items.
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
