// What makes a reply well-formed: the driver's demands on the module's answer to one notification.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

namespace fenlux::refhost {

// What a notification demands.
struct ReplyDue {
  bool none = false;      // the code expects no reply
  bool judgeable = true;  // long enough, and of a known code
  bool oplock = false;    // passed without being judged
  bool client2 = false;   // the connection's client type is 2
};

// Reads off a notification what reply it demands.
ReplyDue DueReply(const std::uint8_t* message, std::size_t size, std::uint32_t clientType);

struct ReplyFinding {
  std::uint32_t verdict = 0;  // 0 where the reply breaks the protocol
  std::string violation;      // empty where it does not
};

// Judges a reply that came. A notification that expects none may still get the reply that says "unjudged".
ReplyFinding CheckReply(const std::uint8_t* reply, std::size_t size, const ReplyDue& due);

// Whether the module knows the notification code.
bool IsKnownCode(std::uint32_t code);

}  // namespace fenlux::refhost
