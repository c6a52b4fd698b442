// What makes a reply well-formed: the driver's requirements on the module's reply to one notification.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "refhost/emulator/driver/notification_view.h"

namespace fenlux::refhost {

// Instead of a verdict: there is no reply, or it breaks the protocol.
inline constexpr std::uint32_t kNoVerdict = 0;

// The reply that a notification requires.
struct ReplyDue {
  bool none = false;      // the code expects no reply
  bool judgeable = true;  // the notification is complete and its code is known
  bool oplock = false;    // the operation passes without being judged
  bool client2 = false;   // the connection's client type is 2
};

// Returns the reply that the notification requires.
ReplyDue DueReply(const NotificationView& notification, std::uint32_t clientType);

struct ReplyFinding {
  std::uint32_t verdict = kNoVerdict;
  std::string violation;  // empty if the reply follows the protocol
};

// Checks a reply. A notification that expects none may still get the reply that says "unjudged".
ReplyFinding CheckReply(const std::uint8_t* reply, std::size_t size, const ReplyDue& due);

// Whether the module handles the notification code.
bool IsKnownCode(std::uint32_t code);

}  // namespace fenlux::refhost
