// The variable items behind a notification's fixed part, read with every bound checked.
#pragma once

#include <cstdint>
#include <span>
#include <string>

#include "kdi/driver_records.h"

namespace fenlux {

// What is said of a message, or an item of it, that is shorter than its own fields tell.
inline constexpr char kBadMessageSize[] = "[wdi,wdaokd-1]bad size!";

// A view on a message of the driver, which lives as long as the handler's call. Offsets are computed in 64 bits: the
// lengths are the driver's and may hold anything. An item that begins at or behind the end of the message, and bytes
// that overrun it, are std::runtime_error with kBadMessageSize.
class NotificationItems {
 public:
  // Throws where the message is absent or shorter than the fixed part.
  NotificationItems(const void* message, std::uint32_t messageSize);

  const records::Notification& Fixed() const { return *reinterpret_cast<const records::Notification*>(bytes); }
  // The account identity block, or null where the message carries none.
  const std::uint8_t* Identity() const { return Fixed().identityPresent.value() != 0 ? Fixed().identity : nullptr; }

  // Texts run from their item's start to a NUL or the end of the message; the item's length only places the next one.
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
