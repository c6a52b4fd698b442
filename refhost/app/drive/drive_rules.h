// What a driver has to do, as `drive` checks it: the checks, and the rules of the protocol that belong to each.
#pragma once

#include <cstddef>
#include <string_view>

namespace fenlux::refhost {

// In the order in which results are shown.
enum class DriveCheck : std::size_t {
  kConnect,
  kConnection,
  kReconnect,
  kRequests,
  kRequestTime,
  kVersionReply,
  kNotificationSize,
  kNotificationCode,
  kNotificationItems,
  kNotificationTexts,
  kReplies,
};
inline constexpr std::size_t kDriveChecks = 11;

struct DriveCheckText {
  std::string_view name;
  std::string_view duty;       // "The driver ..."
  std::string_view notSeen;    // why there was nothing to check
  std::string_view unitOfOne;  // of what was checked
  std::string_view unit;
};
const DriveCheckText& TextOf(DriveCheck check);

// What a driver can do wrong.
enum class DriveRule : std::size_t {
  kConnectRefused,
  kConnectUnanswered,
  kConnectionDropped,
  kNotConnectedAgain,
  kRequestRejected,
  kRequestUnanswered,
  kRequestLate,
  kVersionMissing,
  kVersionShort,
  kVersionHead,
  kVersionNumber,
  kNotificationShort,
  kNotificationLong,
  kCodeUnknown,
  kItemOutside,
  kTextOdd,
  kTextUnterminated,
  kReplyLate,
  kReplyNotAwaited,
  kReplyRefused,
};

inline constexpr std::size_t kDriveRules = 20;

struct DriveRuleText {
  DriveCheck check;
  std::string_view protocol;  // what the protocol says
  std::string_view section;   // of docs/protocol.md
  std::string_view advice;
};
const DriveRuleText& TextOf(DriveRule rule);

}  // namespace fenlux::refhost
