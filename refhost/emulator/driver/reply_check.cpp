// Checks the rules in order and reports the first one that a reply breaks.
#include "refhost/emulator/driver/reply_check.h"

#include <fmt/format.h>

#include <cstring>

#include "kdi/driver_records.h"

namespace fenlux::refhost {
namespace {

constexpr auto kPass = static_cast<std::uint32_t>(records::Verdict::kPass);
constexpr auto kContext = static_cast<std::uint32_t>(records::Verdict::kContext);
constexpr auto kPassClient2 = static_cast<std::uint32_t>(records::Verdict::kPassClient2);
constexpr auto kUnjudged = static_cast<std::uint32_t>(records::Verdict::kUnjudged);

// What is wrong with the reply, as text for a message; empty if it is well-formed.
std::string Broken(const records::Reply& fixed, std::size_t size, const ReplyDue& due) {
  const std::uint32_t verdict = fixed.verdict.value();
  if (fixed.magic.value() != records::kReplyMagic) return "without the reply's magic";
  if (fixed.fixedSize.value() != records::kReplyFixedSize) {
    return fmt::format("that states a fixed size of {}", fixed.fixedSize.value());
  }
  if (verdict < records::kMinVerdict || verdict > records::kMaxVerdict) {
    return fmt::format("with the unknown verdict {}", verdict);
  }
  if (verdict == kContext) {
    const std::uint32_t contextSize = fixed.contextSize.value();
    if (contextSize <= records::kContextTerminatorSize) {
      return fmt::format("with context data of {} bytes", contextSize);
    }
    if (size != std::size_t{records::kReplyFixedSize} + contextSize) {
      return fmt::format("of {} bytes that states {} bytes of context data", size, contextSize);
    }
  } else if (size != records::kReplyFixedSize) {
    return fmt::format("of {} bytes with verdict {}", size, verdict);
  }
  if (verdict == kUnjudged) return {};
  if (due.none) return fmt::format("with verdict {} where none is expected", verdict);
  if (!due.judgeable) return fmt::format("with verdict {} to a notification that cannot be judged", verdict);
  if (due.client2 && verdict == kPass) {
    return fmt::format("with verdict {} for client type {}", verdict, records::kClientType2);
  }
  if (due.oplock && verdict != (due.client2 ? kPassClient2 : kPass)) {
    return fmt::format("with verdict {} to an oplock break", verdict);
  }
  return {};
}

}  // namespace

bool IsKnownCode(std::uint32_t code) {
  return (code >= records::code::kMin1 && code <= records::code::kMax1 && code != records::code::kUnused) ||
         (code >= records::code::kMin2 && code <= records::code::kMax2);
}

ReplyDue DueReply(const NotificationView& notification, std::uint32_t clientType) {
  ReplyDue due;
  due.client2 = clientType == records::kClientType2;
  due.judgeable = notification.Complete() && IsKnownCode(notification.Code());
  if (due.judgeable) {
    due.none = notification.Code() == records::code::kNoReply;
    due.oplock = notification.Oplock();
  }
  return due;
}

ReplyFinding CheckReply(const std::uint8_t* reply, std::size_t size, const ReplyDue& due) {
  if (reply == nullptr || size < records::kReplyFixedSize)
    return {kNoVerdict, fmt::format("a reply of {} bytes", size)};
  records::Reply fixed{};
  std::memcpy(&fixed, reply, sizeof(fixed));
  const std::string broken = Broken(fixed, size, due);
  if (!broken.empty()) return {kNoVerdict, "a reply " + broken};
  return {fixed.verdict.value(), {}};
}

}  // namespace fenlux::refhost
