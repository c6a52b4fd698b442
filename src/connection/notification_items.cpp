// Reads items of a message whose sizes cannot be trusted.
#include "connection/notification_items.h"

#include <stdexcept>

#include "common/wide_text.h"

namespace fenlux {

NotificationItems::NotificationItems(const void* message, std::uint32_t messageSize)
    : bytes(static_cast<const std::uint8_t*>(message)), size(messageSize) {
  if (bytes == nullptr || size < records::kNotificationFixedSize) throw std::runtime_error(kBadMessageSize);
}

std::wstring NotificationItems::Text(std::uint64_t offset) const {
  if (offset >= size) throw std::runtime_error(kBadMessageSize);
  return WideFromUtf16(bytes + offset, static_cast<std::size_t>((size - offset) / 2));
}

std::span<const std::uint8_t> NotificationItems::ExtraData() const {
  const std::uint64_t offset = Item3();
  const std::uint64_t length = Fixed().item3Size.value();
  if (offset >= size || length > size - offset) throw std::runtime_error(kBadMessageSize);
  return {bytes + offset, static_cast<std::size_t>(length)};
}

}  // namespace fenlux
