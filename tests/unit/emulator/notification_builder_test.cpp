// Every field of a notification, byte by byte, written over 0xCD so that a byte too few or too many shows.
#include "refhost/emulator/sources/notification_builder.h"

#include <gtest/gtest.h>

#include <stdexcept>

#include "refhost/emulator/driver/notification_view.h"
#include "tests/support/record_builders.h"

namespace fenlux::testing {
namespace {

using refhost::BuildNotification;
using refhost::EndpointFields;
using refhost::NotificationFields;
using refhost::NotificationSize;
using refhost::NotificationView;
using refhost::RemoteFields;
using refhost::WriteNotification;

// What the builder writes into memory filled with 0xCD, with eight bytes to spare at the end.
Bytes Written(const NotificationFields& fields) {
  Bytes memory(NotificationSize(fields) + 8, 0xCD);
  WriteNotification(fields, memory.data());
  return memory;
}

// The expected message: zero except for what is put into it, followed by the same eight bytes.
Golden Expected(std::size_t size) {
  Golden golden(size + 8, 0);
  golden.Put(size, Bytes(8, 0xCD));
  return golden;
}

TEST(NotificationBuilder, LeavesEverythingElseZero) {
  EXPECT_TRUE(SameBytes(Expected(156).Hex(20, "02 10").Get(), Written({.code = 4098})));
}

TEST(NotificationBuilder, WritesEveryFixedField) {
  NotificationFields fields;
  fields.code = 0x11223344;
  fields.processId = 0x0102030405060708;
  fields.variant = 1;
  fields.conditionA = 2;
  fields.conditionB = 3;
  fields.conditionC = 4;
  fields.oplock = 5;
  fields.identity = Bytes(64, 0xAA);
  fields.accessKind = 6;
  fields.accessValueA = 0xa1a2a3a4;
  fields.accessValueB = 0xb1b2b3b4;
  EXPECT_TRUE(SameBytes(Expected(156)
                            .Hex(12, "08 07 06 05 04 03 02 01 44 33 22 11 01 02 00 03 04 05")
                            .Hex(46, "01 00 00 00")
                            .Put(50, Bytes(64, 0xAA))
                            .Hex(147, "06 a4 a3 a2 a1 b4 b3 b2 b1")
                            .Get(),
                        Written(fields)));
}

TEST(NotificationBuilder, LaysOutTheItemsOneAfterTheOther) {
  NotificationFields fields;
  fields.code = 8204;
  fields.path = u"ab";
  fields.secondPath = u"\u20ac";
  fields.extraData = {1, 2, 3};
  fields.furtherPath = u"z";
  EXPECT_TRUE(SameBytes(Expected(156 + 6 + 4 + 3 + 4)
                            .Hex(20, "0c 20")
                            .Hex(30, "06 00 00 00 04 00 00 00 03 00 00 00 01 00 00 00")
                            .Hex(156, "61 00 62 00 00 00  ac 20 00 00  01 02 03  7a 00 00 00")
                            .Get(),
                        Written(fields)));
}

TEST(NotificationBuilder, WritesAnIpv4Endpoint) {
  const NotificationFields fields{.code = 4114, .detail = EndpointFields{.port = 0x1234, .address = 0x0100007fu}};
  EXPECT_TRUE(SameBytes(Expected(156).Hex(20, "12 10").Hex(114, "00 34 12 7f 00 00 01").Get(), Written(fields)));
}

TEST(NotificationBuilder, WritesAnIpv6Endpoint) {
  std::array<std::uint8_t, 16> address{};
  for (std::size_t i = 0; i < address.size(); ++i) address[i] = static_cast<std::uint8_t>(i + 1);
  const NotificationFields fields{.code = 4114, .detail = EndpointFields{.port = 443, .address = address}};
  EXPECT_TRUE(SameBytes(
      Expected(156).Hex(20, "12 10").Hex(114, "01 bb 01 01 02 03 04 05 06 07 08 09 0a 0b 0c 0d 0e 0f 10").Get(),
      Written(fields)));
}

TEST(NotificationBuilder, WritesTheRemoteWords) {
  const NotificationFields fields{.code = 4116, .detail = RemoteFields{.remote = true, .words = {1, 2, 3, 4}}};
  EXPECT_TRUE(SameBytes(Expected(156)
                            .Hex(20, "14 10")
                            .Hex(114,
                                 "01  01 00 00 00 00 00 00 00  02 00 00 00 00 00 00 00"
                                 "03 00 00 00 00 00 00 00  04 00 00 00 00 00 00 00")
                            .Get(),
                        Written(fields)));
}

TEST(NotificationBuilder, WritesWrongLengthsIfGiven) {
  const NotificationFields fields{
      .code = 4098, .path = u"a", .statedItem1Size = 0xffffffff, .statedItem2Size = 7, .statedItem3Size = 9};
  EXPECT_TRUE(SameBytes(
      Expected(160).Hex(20, "02 10").Hex(30, "ff ff ff ff 07 00 00 00 09 00 00 00").Hex(156, "61 00 00 00").Get(),
      Written(fields)));
}

TEST(NotificationBuilder, RefusesIdentityDataThatDoesNotFit) {
  EXPECT_THROW(BuildNotification({.identity = Bytes(65)}), std::invalid_argument);
}

TEST(NotificationView, ReadsTheCodeIfThereIsOne) {
  const Bytes message = BuildNotification({.code = 4097});
  EXPECT_EQ(NotificationView(message).Code(), 4097u);
  EXPECT_EQ(NotificationView(message.data(), 24).Code(), 4097u);
  EXPECT_EQ(NotificationView(message.data(), 23).Code(), 0u);
  EXPECT_EQ(NotificationView(nullptr, 0).Code(), 0u);
}

}  // namespace
}  // namespace fenlux::testing
