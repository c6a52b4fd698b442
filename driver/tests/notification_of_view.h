// The notification that a parsed view shows, so that tests and the fuzzer can build it again.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "fenlux/driver_protocol.h"

namespace fenlux::testing {

// The units of a text, in the machine's byte order.
inline std::vector<std::uint16_t> Units(FenluxText text) {
  std::vector<std::uint16_t> units;
  for (std::size_t i = 0; i < text.count; ++i) units.push_back(FenluxTextUnit(text, i));
  return units;
}

// Owns the units of the texts; the extra data and the identity block stay in the view's message.
class NotificationOfView {
 public:
  explicit NotificationOfView(const FenluxNotificationView& view)
      : path(Units(view.path)), secondPath(Units(view.secondPath)), furtherPath(Units(view.furtherPath)) {
    notification.event = view.event;
    notification.path = {path.data(), path.size()};
    notification.secondPath = {secondPath.data(), secondPath.size()};
    notification.furtherPath = {furtherPath.data(), furtherPath.size()};
    notification.extraData = view.extraData;
    notification.identity = view.identity;
  }
  NotificationOfView(const NotificationOfView&) = delete;
  NotificationOfView& operator=(const NotificationOfView&) = delete;

  const FenluxNotification* Get() const { return &notification; }

 private:
  const std::vector<std::uint16_t> path;
  const std::vector<std::uint16_t> secondPath;
  const std::vector<std::uint16_t> furtherPath;
  FenluxNotification notification = {};
};

}  // namespace fenlux::testing
