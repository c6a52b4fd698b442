// The variable items after a notification's fixed part, read with bounds checks.
#pragma once

#include <cstdint>
#include <span>
#include <string>

#include "kdi/driver_records.h"

namespace fenlux {

// The message of the exception for a notification, or an item of it, that is shorter than its fields say.
inline constexpr char kBadMessageSize[] = "[wdi,wdaokd-1]bad size!";

// A view of a driver message; does not own it. The driver's lengths may hold anything, so offsets are computed in 64
// bits. Throws std::runtime_error with kBadMessageSize for an item that starts at or beyond the end of the message, and
// for extra data that runs past it. Delivery threads.
class NotificationItems {
 public:
  // Throws if the message is null or shorter than the fixed part.
  NotificationItems(const void* message, std::uint32_t messageSize);

  const records::Notification& Fixed() const { return *reinterpret_cast<const records::Notification*>(bytes); }
  // The account identity block, or null if the message has none.
  const std::uint8_t* Identity() const { return Fixed().identityPresent.value() != 0 ? Fixed().identity : nullptr; }

  // A text runs from the start of its item to a NUL or the end of the message. Its length field only says where the
  // next item starts.
  std::wstring Path() const { return Text(kItem1); }
  std::wstring SecondPath() const { return Text(Item2()); }
  std::span<const std::uint8_t> ExtraData() const;
  std::wstring FurtherPath() const { return Text(Item3() + Fixed().item3Size.value()); }

 private:
  static constexpr std::uint64_t kItem1 = records::kNotificationFixedSize;
  std::uint64_t Item2() const { return kItem1 + Fixed().item1Size.value(); }
  std::uint64_t Item3() const { return Item2() + Fixed().item2Size.value(); }
  std::wstring Text(std::uint64_t offset) const;

  const std::uint8_t* bytes;
  std::uint64_t size;
};

}  // namespace fenlux
