// The bytes of one notification, with its code read once.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

#include "kdi/driver_records.h"

namespace fenlux::refhost {

// Borrows the bytes.
class NotificationView {
 public:
  NotificationView(const std::uint8_t* message, std::size_t messageSize)
      : bytes(message), size(messageSize), code(ReadCode(message, messageSize)) {}
  explicit NotificationView(const std::vector<std::uint8_t>& message)
      : NotificationView(message.data(), message.size()) {}

  const std::uint8_t* Data() const { return bytes; }
  std::uint32_t Size() const { return static_cast<std::uint32_t>(size); }
  // 0 if the message is too short to hold a code.
  std::uint32_t Code() const { return code; }
  // Whether the message holds a notification's fixed part.
  bool Complete() const { return size >= records::kNotificationFixedSize; }
  // The oplock flag; false if the message is not complete.
  bool Oplock() const { return Complete() && bytes[offsetof(records::Notification, oplock)] != 0; }

 private:
  static std::uint32_t ReadCode(const std::uint8_t* message, std::size_t messageSize) {
    constexpr std::size_t kOffset = offsetof(records::Notification, code);
    records::U32 field{};
    if (messageSize < kOffset + sizeof(field)) return 0;
    std::memcpy(&field, message + kOffset, sizeof(field));
    return field.value();
  }

  const std::uint8_t* bytes;
  std::size_t size;
  std::uint32_t code;
};

}  // namespace fenlux::refhost
