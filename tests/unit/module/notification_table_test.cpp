// The notification table, row by row and in both variants, checked against an independent copy.
#include "connection/notification_table.h"

#include "tests/unit/module/notification_test.h"

namespace fenlux::testing {
namespace {

struct Row {
  std::uint32_t code;
  std::uint32_t plain;
  std::uint32_t variant;
};

constexpr Row kRows[] = {
    {4097, 0x4002, 0x4003}, {8193, 0x4002, 0x4003},                          // without conditions
    {4098, 0x4005, 0x4005}, {4099, 0x4006, 0x4006},                          //
    {4100, 0x4007, 0x4007}, {8195, 0x4007, 0x4007},                          //
    {4101, 0x4008, 0x4009}, {8196, 0x4008, 0x4009},                          //
    {4102, 0x400A, 0x400A}, {8197, 0x400A, 0x400A},                          //
    {4103, 0x400B, 0x400B}, {8198, 0x400B, 0x400B},                          //
    {4104, 0x400C, 0x400C}, {8199, 0x400C, 0x400C},                          //
    {4105, 0x400D, 0x400D}, {8200, 0x400D, 0x400D},                          //
    {4106, 0x400E, 0x400E}, {8201, 0x400E, 0x400E},                          //
    {4107, 0x400F, 0x400F}, {8202, 0x400F, 0x400F},                          //
    {4108, 0x4010, 0x4010}, {8203, 0x4010, 0x4010},                          //
    {4109, 0x4011, 0x4011}, {4110, 0x4012, 0x4012}, {4111, 0x4013, 0x4013},  //
    {4112, 0x4014, 0x4014}, {4113, 0x4015, 0x4015}, {4114, 0x1002, 0x1002},  //
    {4116, 0x4018, 0x4018}, {4117, 0x401B, 0x401B}, {4118, 0x401E, 0x401E},  //
    {8194, 0x4004, 0x4004}, {8204, 0x4017, 0x4017}, {8205, 0x4019, 0x4019},  //
    {8206, 0x401A, 0x401A},
};

class NotificationTable : public NotificationTest {
 protected:
  std::uint32_t TypeOf(const NotificationBuilder& message) {
    Dispatch(message);
    const Lines types = Gate().EntriesOf({"CArpRecord::SetEventType"});
    EXPECT_EQ(types.size(), 1u);
    return types.size() == 1 ? host.Record()->eventType : 0;
  }
  // What the code stores in the record besides its type.
  Lines Work(const NotificationBuilder& message) {
    Dispatch(message);
    Lines calls = RecordCallsAfterProcess();
    EXPECT_GE(calls.size(), 2u);
    EXPECT_EQ(calls.back(), "CAoArp::Evaluate(record)");
    calls.resize(calls.size() - 2);
    return calls;
  }
};

class NotificationTableRow : public NotificationTable, public ::testing::WithParamInterface<Row> {};

}  // namespace

TEST_P(NotificationTableRow, HasItsEventTypes) {
  const Row row = GetParam();
  EXPECT_EQ(TypeOf(NotificationBuilder(row.code)), row.plain);
  EXPECT_EQ(TypeOf(NotificationBuilder(row.code).Variant(1)), row.variant);
  EXPECT_EQ(TypeOf(NotificationBuilder(row.code).Variant(0x80)), row.variant) << "any value selects the second type";
}

TEST_P(NotificationTableRow, HasItsCategory) {
  const Row row = GetParam();
  Dispatch(NotificationBuilder(row.code));
  EXPECT_EQ(host.Record()->category, row.code >= 8192 || row.code == 4109 ? 2u : 1u);
}

TEST_P(NotificationTableRow, IsAnsweredUnlessItIsCode4113) {
  const auto reply = Dispatch(NotificationBuilder(GetParam().code));
  if (GetParam().code == 4113) {
    EXPECT_FALSE(reply);
  } else {
    EXPECT_TRUE(SameBytes(GoldenReply(2), BytesOf(reply)));
  }
  EXPECT_TRUE(Logged().empty());
}

TEST_P(NotificationTableRow, UsesTheConditionFlagsOnlyIfTheyApply) {
  const Row row = GetParam();
  const bool counts = row.code == 4097 || row.code == 8193 || row.code == 4109;
  if (counts) return;
  for (const std::size_t offset : {25u, 26u, 27u, 28u, 147u}) {
    EXPECT_EQ(TypeOf(NotificationBuilder(row.code).U8(offset, 1)), row.plain) << offset;
    EXPECT_EQ(TypeOf(NotificationBuilder(row.code).U8(offset, 1).Variant(1)), row.variant) << offset;
  }
}

TEST_P(NotificationTableRow, IgnoresUnusedBytes) {
  const Row row = GetParam();
  NotificationBuilder message(row.code);
  for (std::size_t offset = 0; offset < 12; ++offset) message.U8(offset, 0xFF);
  message.U8(26, 0xFF);
  EXPECT_EQ(TypeOf(message), row.plain);
}

INSTANTIATE_TEST_SUITE_P(Codes, NotificationTableRow, ::testing::ValuesIn(kRows),
                         [](const auto& instance) { return std::to_string(instance.param.code); });

TEST_F(NotificationTable, HasNoOtherRows) {
  std::set<std::uint32_t> known;
  for (const Row& row : kRows) known.insert(row.code);
  EXPECT_EQ(known.size(), 35u);
  for (std::uint32_t code = 0; code < 0x10000; ++code) {
    EXPECT_EQ(FindNotificationRow(code) != nullptr, known.count(code) == 1) << code;
  }
  EXPECT_EQ(FindNotificationRow(0xFFFFFFFF), nullptr);
}

// ---------------------------------------------------------------- 4097 and 8193

TEST_F(NotificationTable, AccessCarriesTwoValues) {
  for (const std::uint32_t code : {4097u, 8193u}) {
    EXPECT_EQ(Work(NotificationBuilder(code).U32(148, 0x11223344).U32(152, 0x55667788)),
              (Lines{"CArpRecord::SetValueA(0x11223344)", "CArpRecord::SetValueB(0x55667788)"}));
  }
}

TEST_F(NotificationTable, AccessWithAConditionHasItsOwnTypes) {
  for (const std::uint32_t code : {4097u, 8193u}) {
    for (const std::size_t condition : {25u, 27u, 28u}) {
      EXPECT_EQ(TypeOf(NotificationBuilder(code).U8(condition, 1)), 0x4000u) << condition;
      EXPECT_EQ(TypeOf(NotificationBuilder(code).U8(condition, 0x40).Variant(1)), 0x4001u) << condition;
    }
    EXPECT_EQ(TypeOf(NotificationBuilder(code).U8(26, 1)), 0x4002u) << "byte 26 is not a condition";
    EXPECT_EQ(TypeOf(NotificationBuilder(code)), 0x4002u);
    EXPECT_EQ(TypeOf(NotificationBuilder(code).Variant(1)), 0x4003u);
  }
}

TEST_F(NotificationTable, TheAccessKindTakesPrecedenceOverTheConditions) {
  for (const std::uint32_t code : {4097u, 8193u}) {
    for (const std::uint8_t condition : {std::uint8_t{0}, std::uint8_t{1}}) {
      EXPECT_EQ(TypeOf(NotificationBuilder(code).U8(147, 1).ConditionA(condition)), 0x401Cu);
      EXPECT_EQ(TypeOf(NotificationBuilder(code).U8(147, 0xFF).ConditionA(condition).Variant(1)), 0x401Du);
    }
  }
}

// ---------------------------------------------------------------- 4109

TEST_F(NotificationTable, Code4109HasCategory2) {
  Dispatch(NotificationBuilder(4109));
  EXPECT_EQ(Gate().EntriesOf({"CArpRecord::SetCategory", "CArpRecord::SetEventType"}),
            (Lines{"CArpRecord::SetCategory(1)", "CArpRecord::SetCategory(2)", "CArpRecord::SetEventType(0x4011)"}));
}

TEST_F(NotificationTable, Code4109HasItsOwnTypesOnlyForConditionB) {
  EXPECT_EQ(TypeOf(NotificationBuilder(4109).ConditionB(1)), 0x4008u);
  EXPECT_EQ(TypeOf(NotificationBuilder(4109).ConditionB(0x10).Variant(1)), 0x4009u);
  EXPECT_EQ(TypeOf(NotificationBuilder(4109).Variant(1)), 0x4011u) << "whatever the variant flag holds";
  EXPECT_EQ(TypeOf(NotificationBuilder(4109).ConditionA(1).ConditionC(1).Variant(1)), 0x4011u);
}

// ---------------------------------------------------------------- 4114

TEST_F(NotificationTable, AnIpv4EndpointIsPortFlagAndFourBytes) {
  EXPECT_EQ(
      Work(NotificationBuilder(4114).U16(115, 0x1F90).Put(117, FromHex("0a 0b 0c 0d ee ee"))),
      (Lines{"CArpRecord::SetPort(8080)", "CArpRecord::SetIpv6(false)", "CArpRecord::SetIpv4Address(0xd0c0b0a)"}));
}

TEST_F(NotificationTable, AnIpv6EndpointIsPortFlagAndSixteenBytes) {
  EXPECT_EQ(Work(NotificationBuilder(4114)
                     .U8(114, 2)
                     .U16(115, 0xFFFF)
                     .Put(117, FromHex("20 01 0d b8 00 01 02 03 04 05 06 07 08 09 0a 0b ee"))),
            (Lines{"CArpRecord::SetPort(65535)", "CArpRecord::SetIpv6(true)",
                   "CArpRecord::SetIpv6Address(20010db8000102030405060708090a0b)"}));
}

// ---------------------------------------------------------------- 4116 and 8205

TEST_F(NotificationTable, ARemoteEventCarriesAFlagAndFourWords) {
  for (const std::uint32_t code : {4116u, 8205u}) {
    EXPECT_EQ(
        Work(NotificationBuilder(code)
                 .Item1(u"/p")
                 .U8(114, 0x80)
                 .U64(115, 0x0102030405060708)
                 .U64(123, 2)
                 .U64(131, 3)
                 .U64(139, 0xFFFFFFFFFFFFFFFF)),
        (Lines{"CUtility::ToRecordString(/p)", "CArpRecord::SetPath(/p)", "CUtility::ToRecordString(/p)",
               "CArpRecord::SetPath(/p)", "CArpRecord::SetRemoteFlag(true)", "CArpRecord::SetWord0(0x102030405060708)",
               "CArpRecord::SetWord1(0x2)", "CArpRecord::SetWord2(0x3)", "CArpRecord::SetWord3(0xffffffffffffffff)",
               "CArpRecord::GetPath()"}));
  }
}

TEST_F(NotificationTable, ARemoteEventWithoutAPathRequestsItFromTheHost) {
  for (const std::uint32_t code : {4116u, 8205u}) {
    EXPECT_EQ(Work(NotificationBuilder(code)),
              (Lines{"CArpRecord::SetRemoteFlag(false)", "CArpRecord::SetWord0(0x0)", "CArpRecord::SetWord1(0x0)",
                     "CArpRecord::SetWord2(0x0)", "CArpRecord::SetWord3(0x0)", "CArpRecord::GetPath()",
                     "CArpRecord::GetPathSource()", "CWinWork::GetProcessWideText(4711, 0)",
                     "CArpRecord::SetPath(wide-4711)"}));
  }
}

TEST_F(NotificationTable, APathThatConvertsToEmptyIsRequestedToo) {
  Settings().toRecord = [](const std::wstring&) { return std::wstring(); };
  Dispatch(NotificationBuilder(4116).Item1(u"/p"));
  EXPECT_EQ(Gate().Count("CArpRecord::SetPath(wide-4711)"), 1u);
}

// ---------------------------------------------------------------- 8194

TEST_F(NotificationTable, Code8194IsMarkedAndAlwaysHasOneType) {
  EXPECT_EQ(Work(NotificationBuilder(8194)), Lines{"CArpRecord::Mark()"});
  for (const std::size_t offset : {24u, 25u, 27u, 28u, 114u, 147u}) {
    EXPECT_EQ(TypeOf(NotificationBuilder(8194).U8(offset, 1)), 0x4004u) << offset;
  }
}

TEST_F(NotificationTable, NoOtherCodeIsMarked) {
  for (const Row& row : kRows) {
    if (row.code == 8194) continue;
    Dispatch(NotificationBuilder(row.code));
    EXPECT_EQ(Gate().Count("CArpRecord::Mark"), 0u) << row.code;
  }
}

TEST_F(NotificationTable, OtherCodesOnlyFillTheCommonFields) {
  for (const Row& row : kRows) {
    switch (row.code) {
      case 4097:
      case 8193:
      case 4109:
      case 4114:
      case 4116:
      case 8205:
      case 8194:
        continue;
      default:
        NotificationBuilder message(row.code);
        for (std::size_t offset = 114; offset < 156; ++offset) message.U8(offset, 0xFF);
        EXPECT_TRUE(Work(message).empty()) << row.code;
    }
  }
}

}  // namespace fenlux::testing
