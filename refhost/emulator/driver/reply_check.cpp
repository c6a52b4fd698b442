// The rules, one after the other; the first that is broken is told.
#include "refhost/emulator/driver/reply_check.h"

#include <cstring>

#include "kdi/driver_records.h"
#include "refhost/emulator/sources/notification_builder.h"

namespace fenlux::refhost {
namespace {

constexpr std::uint32_t kFirstCode1 = 4097;  // file, process and network operations
constexpr std::uint32_t kLastCode1 = 4118;
constexpr std::uint32_t kUnusedCode = 4115;  // stands between them and is unknown
constexpr std::uint32_t kFirstCode2 = 8193;
constexpr std::uint32_t kLastCode2 = 8206;
constexpr std::uint32_t kCodeWithoutReply = 4113;

constexpr auto kLeastVerdict = static_cast<std::uint32_t>(records::Verdict::kVerdict2);
constexpr auto kPass = static_cast<std::uint32_t>(records::Verdict::kPass);
constexpr auto kContext = static_cast<std::uint32_t>(records::Verdict::kContext);
constexpr auto kPassClient2 = static_cast<std::uint32_t>(records::Verdict::kPassClient2);
constexpr auto kUnjudged = static_cast<std::uint32_t>(records::Verdict::kUnjudged);
constexpr std::uint32_t kContextTail = 2;  // the bytes that follow the context data and end a UTF-16 text

std::string Number(std::uint64_t value) { return std::to_string(value); }

// The rule that the reply breaks, in words; empty where it breaks none.
std::string Broken(const records::Reply& fixed, std::size_t size, const ReplyDue& due) {
  const std::uint32_t verdict = fixed.verdict.value();
  if (fixed.magic.value() != records::kReplyMagic) return "without the reply's magic";
  if (fixed.fixedSize.value() != records::kReplyFixedSize) {
    return "that states a fixed size of " + Number(fixed.fixedSize.value());
  }
  if (verdict < kLeastVerdict || verdict > kUnjudged) return "with the unknown verdict " + Number(verdict);
  if (verdict == kContext) {
    const std::uint32_t contextSize = fixed.contextSize.value();
    if (contextSize <= kContextTail) return "with context data of " + Number(contextSize) + " bytes";
    if (size != std::size_t{records::kReplyFixedSize} + contextSize) {
      return "of " + Number(size) + " bytes that states " + Number(contextSize) + " bytes of context data";
    }
  } else if (size != records::kReplyFixedSize) {
    return "of " + Number(size) + " bytes with verdict " + Number(verdict);
  }
  if (verdict == kUnjudged) return {};
  if (due.none) return "with verdict " + Number(verdict) + " where none is expected";
  if (!due.judgeable) return "with verdict " + Number(verdict) + " to what cannot be judged";
  if (due.client2 && verdict == kPass) return "with verdict 3 for client type 2";
  if (due.oplock && verdict != (due.client2 ? kPassClient2 : kPass)) {
    return "with verdict " + Number(verdict) + " to an oplock break";
  }
  return {};
}

}  // namespace

bool IsKnownCode(std::uint32_t code) {
  return (code >= kFirstCode1 && code <= kLastCode1 && code != kUnusedCode) ||
         (code >= kFirstCode2 && code <= kLastCode2);
}

ReplyDue DueReply(const std::uint8_t* message, std::size_t size, std::uint32_t clientType) {
  ReplyDue due;
  due.client2 = clientType == records::ClientType(true);
  const std::uint32_t code = NotificationCode(message, size);
  due.judgeable = size >= records::kNotificationFixedSize && IsKnownCode(code);
  if (due.judgeable) {
    due.none = code == kCodeWithoutReply;
    due.oplock = message[offsetof(records::Notification, oplock)] != 0;
  }
  return due;
}

ReplyFinding CheckReply(const std::uint8_t* reply, std::size_t size, const ReplyDue& due) {
  if (reply == nullptr || size < records::kReplyFixedSize) return {0, "a reply of " + Number(size) + " bytes"};
  records::Reply fixed{};
  std::memcpy(&fixed, reply, sizeof(fixed));
  const std::string broken = Broken(fixed, size, due);
  if (!broken.empty()) return {0, "a reply " + broken};
  return {fixed.verdict.value(), {}};
}

}  // namespace fenlux::refhost
