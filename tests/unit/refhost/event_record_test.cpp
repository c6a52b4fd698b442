// Records keep what the module sets.
#include "refhost/services/events/event_record.h"

#include <gtest/gtest.h>

#include "refhost/services/heap_buffer.h"

namespace fenlux::refhost {
namespace {

TEST(EventRecord, KeepsTheLastValueOfEverySetter) {
  EventRecordMaker maker;
  std::shared_ptr<CArpRecord> record;
  ASSERT_NE(maker.CreateRecord(record, 0), nullptr);
  const auto& data = static_cast<EventRecord&>(*record).Data();
  record->ProcessPart()->SetProcessId(0x1'0000'0002);
  record->ProcessPart()->SetSessionId(3);
  record->ProcessPart()->SetNarrowInfo("cat x");
  record->ProcessPart()->SetIdentityText("S-1-5-18");
  record->SetWideInfo(L"/bin/cat");
  record->SetPath(L"/first");
  record->SetPath(L"/second");
  record->SetSecondPath(L"/other");
  record->SetEventType(0x4004);
  record->SetCategory(1);
  record->SetCategory(2);
  record->SetSource(1);
  record->Mark();
  const auto extra = std::make_shared<HeapBuffer>(std::size_t{3});
  record->SetExtraData(extra);
  record->SetPort(443);
  record->SetIpv6(true);
  record->SetIpv4Address(9);
  record->SetIpv6Address({1, 2});
  record->SetRemoteFlag(true);
  record->SetWord0(10);
  record->SetWord1(11);
  record->SetWord2(12);
  record->SetWord3(13);
  record->SetValueA(20);
  record->SetValueB(21);
  EXPECT_EQ(record->ProcessPart()->GetProcessId(), 0x1'0000'0002U);
  EXPECT_EQ(data.sessionId, 3U);
  EXPECT_EQ(data.commandLine, "cat x");
  EXPECT_EQ(data.identityText, "S-1-5-18");
  EXPECT_EQ(data.imagePath, L"/bin/cat");
  std::wstring path;
  EXPECT_EQ(record->GetPath(path), L"/second");
  EXPECT_EQ(data.secondPath, L"/other");
  EXPECT_EQ(data.eventType, 0x4004U);
  EXPECT_EQ(data.category, 2U);
  EXPECT_EQ(data.source, 1U);
  EXPECT_TRUE(data.marked);
  EXPECT_EQ(data.extraData, extra);
  EXPECT_EQ(data.port, 443);
  EXPECT_TRUE(data.ipv6);
  EXPECT_EQ(data.ipv4Address, 9U);
  EXPECT_EQ(data.ipv6Address[1], 2);
  EXPECT_TRUE(data.remote);
  EXPECT_EQ(data.words, (std::array<std::uint64_t, 4>{10, 11, 12, 13}));
  EXPECT_EQ(data.valueA, 20U);
  EXPECT_EQ(data.valueB, 21U);
}

TEST(EventRecord, StartsEmpty) {
  EventRecord record;
  std::wstring path = L"x";
  EXPECT_EQ(record.GetPath(path), L"");
  EXPECT_EQ(record.GetContextData(), nullptr);
  EXPECT_EQ(record.ProcessPart()->GetProcessId(), 0U);
  EXPECT_FALSE(record.Data().sessionId);
}

TEST(EventRecord, ThePathSourceIsTheProcess) {
  EventRecord record;
  record.ProcessPart()->SetProcessId(4711);
  EXPECT_EQ(record.GetPathSource(), 4711U);
}

TEST(EventRecord, DescribesTheValuesThatAreSet) {
  EventRecord record;
  record.SetCategory(2);
  record.ProcessPart()->SetProcessId(5);
  std::string text;
  EXPECT_EQ(record.Describe(text), "category=2 process=5");
  record.SetEventType(0x401C);
  record.SetWideInfo(L"/bin/cat");
  record.SetPath(L"/a/\u00fc");
  record.SetSecondPath(L"/b");
  EXPECT_EQ(record.Describe(text), "category=2 type=0x401c process=5 image=/bin/cat path=/a/\u00fc second=/b");
}

}  // namespace
}  // namespace fenlux::refhost
