// What the driver requires of a reply, rule by rule.
#include "refhost/emulator/driver/reply_check.h"

#include "tests/unit/emulator/emulator_test.h"

namespace fenlux::testing {
namespace {

using refhost::BuildNotification;
using refhost::CheckReply;
using refhost::DueReply;
using refhost::IsKnownCode;
using refhost::ReplyDue;

std::string Violation(const Bytes& reply, const ReplyDue& due = {}) {
  const auto finding = CheckReply(reply.data(), reply.size(), due);
  EXPECT_EQ(finding.violation.empty(), finding.verdict != 0);
  return finding.violation;
}

Bytes Changed(Bytes bytes, std::size_t offset, std::uint8_t value) {
  bytes[offset] = value;
  return bytes;
}

TEST(ReplyCheck, AcceptsEveryVerdict) {
  for (const std::uint32_t verdict : {2u, 3u, 4u, 5u, 7u, 8u}) {
    const Bytes reply = Reply(verdict);
    EXPECT_EQ(CheckReply(reply.data(), reply.size(), {}).verdict, verdict);
  }
  const Bytes context = Reply(6, {1, 2, 3});
  EXPECT_EQ(CheckReply(context.data(), context.size(), {}).verdict, 6u);
}

TEST(ReplyCheck, NamesWhatIsWrongWithTheRecord) {
  EXPECT_EQ(Violation(Bytes(155)), "a reply of 155 bytes");
  EXPECT_EQ(CheckReply(nullptr, 156, {}).violation, "a reply of 156 bytes");
  EXPECT_EQ(Violation(Changed(Reply(2), 0, 0)), "a reply without the reply's magic");
  EXPECT_EQ(Violation(Changed(Reply(2), 8, 155)), "a reply that states a fixed size of 155");
  EXPECT_EQ(Violation(Reply(1)), "a reply with the unknown verdict 1");
  EXPECT_EQ(Violation(Reply(9)), "a reply with the unknown verdict 9");
}

TEST(ReplyCheck, NamesWhatIsWrongWithContextData) {
  EXPECT_EQ(Violation(Reply(6, {})), "a reply with context data of 2 bytes");
  EXPECT_EQ(Violation(Changed(Reply(6, {1, 2, 3}), 16, 4)), "a reply of 161 bytes that states 4 bytes of context data");
  Bytes longer = Reply(2);
  longer.push_back(0);
  EXPECT_EQ(Violation(longer), "a reply of 157 bytes with verdict 2");
}

TEST(ReplyCheck, FindsTheReplyThatANotificationRequires) {
  const auto due = [](const Bytes& message, std::uint32_t clientType = 1) {
    return DueReply(refhost::NotificationView(message), clientType);
  };
  EXPECT_FALSE(due(Notification(4098)).none);
  EXPECT_TRUE(due(Notification(4098)).judgeable);
  EXPECT_FALSE(due(Notification(4098)).client2);
  EXPECT_TRUE(due(Notification(4098), 2).client2);
  EXPECT_TRUE(due(Notification(4113)).none);
  EXPECT_TRUE(due(BuildNotification({.code = 4098, .oplock = 1})).oplock);
  EXPECT_FALSE(due(Notification(4115)).judgeable);
  Bytes cut = Notification(4113);
  cut.resize(155);
  EXPECT_FALSE(due(cut).judgeable);
  EXPECT_FALSE(due(cut).none);
  EXPECT_FALSE(due({}).judgeable);
}

TEST(ReplyCheck, ChecksTheVerdictAgainstTheNotification) {
  EXPECT_EQ(Violation(Reply(2), {.none = true}), "a reply with verdict 2 where none is expected");
  EXPECT_EQ(Violation(Reply(8), {.none = true}), "");
  EXPECT_EQ(Violation(Reply(2), {.judgeable = false}),
            "a reply with verdict 2 to a notification that cannot be judged");
  EXPECT_EQ(Violation(Reply(8), {.judgeable = false}), "");
  EXPECT_EQ(Violation(Reply(3), {.client2 = true}), "a reply with verdict 3 for client type 2");
  EXPECT_EQ(Violation(Reply(7), {.client2 = true}), "");
  EXPECT_EQ(Violation(Reply(7), {}), "");
  EXPECT_EQ(Violation(Reply(3), {.oplock = true}), "");
  EXPECT_EQ(Violation(Reply(7), {.oplock = true}), "a reply with verdict 7 to an oplock break");
  EXPECT_EQ(Violation(Reply(7), {.oplock = true, .client2 = true}), "");
  EXPECT_EQ(Violation(Reply(2), {.oplock = true, .client2 = true}), "a reply with verdict 2 to an oplock break");
  EXPECT_EQ(Violation(Reply(8), {.oplock = true}), "");
}

TEST(ReplyCheck, RecognizesTheModulesCodes) {
  for (const std::uint32_t unknown : {0u, 4095u, 4096u, 4115u, 4119u, 8191u, 8192u, 8207u}) {
    EXPECT_FALSE(IsKnownCode(unknown)) << unknown;
  }
  for (const std::uint32_t known : {4097u, 4114u, 4116u, 4118u, 8193u, 8206u}) EXPECT_TRUE(IsKnownCode(known)) << known;
}

}  // namespace
}  // namespace fenlux::testing
