// The variable items of a notification: their offsets, how texts end, and bounds checks.
#include "tests/unit/module/notification_test.h"

namespace fenlux::testing {
namespace {

class NotificationItemsDispatch : public NotificationTest {
 protected:
  // The path stored for a notification whose item 1 is this text and runs to the end of the message.
  std::wstring PathOf(const Bytes& tail) {
    Dispatch(NotificationBuilder(4098).Item1Size(2).Tail(tail));
    EXPECT_TRUE(Logged().empty());
    return host.Record()->path;
  }
  // Whether the message is judged; otherwise it must be a bad size.
  bool IsBadSize(const NotificationBuilder& message) {
    const auto reply = Dispatch(message);
    if (Logged().empty()) {
      EXPECT_TRUE(SameBytes(GoldenReply(2), BytesOf(reply)));
      return false;
    }
    EXPECT_EQ(Logged(), Lines{BadSize()});
    EXPECT_TRUE(SameBytes(GoldenReply(8), BytesOf(reply)));
    return true;
  }
};

}  // namespace

TEST_F(NotificationItemsDispatch, ItemsFollowEachOther) {
  Settings().toRecord = [](const std::wstring& path) { return L"R:" + path; };
  Dispatch(NotificationBuilder(4098).Item1(u"\\one").Item2(u"\\second").Item3({0xAA, 0xBB}));
  EXPECT_EQ(RecordCallsAfterProcess(),
            (Lines{"CUtility::ToRecordString(\\one)", "CArpRecord::SetPath(R:\\one)", "CUtility::ToRecordString(\\one)",
                   "CArpRecord::SetPath(R:\\one)", "CUtility::ToRecordString(\\second)",
                   "CArpRecord::SetSecondPath(R:\\second)", "CUtility::BufferFromBytes(2)",
                   "CArpRecord::SetExtraData(aabb)", "CArpRecord::SetEventType(0x4005)", "CAoArp::Evaluate(record)"}));
}

TEST_F(NotificationItemsDispatch, AnItemOfLength0IsAbsent) {
  Dispatch(NotificationBuilder(4098).Tail(Utf16(u"not an item")));
  EXPECT_EQ(RecordCallsAfterProcess(), (Lines{"CArpRecord::SetEventType(0x4005)", "CAoArp::Evaluate(record)"}));
}

TEST_F(NotificationItemsDispatch, ASecondPathNeedsNoFirst) {
  Dispatch(NotificationBuilder(4098).Item2(u"/q"));
  EXPECT_EQ(RecordCallsAfterProcess(), (Lines{"CUtility::ToRecordString(/q)", "CArpRecord::SetSecondPath(/q)",
                                              "CArpRecord::SetEventType(0x4005)", "CAoArp::Evaluate(record)"}));
}

TEST_F(NotificationItemsDispatch, ExtraDataNeedsNoPath) {
  Dispatch(NotificationBuilder(4098).Item3({7}));
  EXPECT_EQ(RecordCallsAfterProcess(), (Lines{"CUtility::BufferFromBytes(1)", "CArpRecord::SetExtraData(07)",
                                              "CArpRecord::SetEventType(0x4005)", "CAoArp::Evaluate(record)"}));
}

TEST_F(NotificationItemsDispatch, AnOddLengthMovesTheNextItemToAnOddOffset) {
  Bytes tail = Utf16(u"/a");
  tail.push_back(0xFF);
  const Bytes second = Utf16(u"/b");
  tail.insert(tail.end(), second.begin(), second.end());
  Dispatch(NotificationBuilder(4098).Item1Size(7).Item2Size(6).Tail(tail));
  EXPECT_EQ(host.Record()->path, L"/a");
  EXPECT_EQ(host.Record()->secondPath, L"/b");
}

// ---------------------------------------------------------------- texts

TEST_F(NotificationItemsDispatch, ATextEndsAtItsNulNotAtItsLength) {
  Dispatch(NotificationBuilder(4098).Item1Size(100).Tail(Utf16(u"/short")));
  EXPECT_EQ(host.Record()->path, L"/short");
  Dispatch(NotificationBuilder(4098).Item1Size(2).Tail(Utf16(u"/longer than its length")));
  EXPECT_EQ(host.Record()->path, L"/longer than its length");
}

TEST_F(NotificationItemsDispatch, ATextWithoutNulEndsAtTheEndOfTheMessage) {
  EXPECT_EQ(PathOf(Utf16(u"/open", false)), L"/open");
}

TEST_F(NotificationItemsDispatch, AnOddLastByteIsIgnored) {
  Bytes tail = Utf16(u"/open", false);
  tail.push_back('x');
  EXPECT_EQ(PathOf(tail), L"/open");
  EXPECT_EQ(PathOf(Bytes{'x'}), L"");
}

TEST_F(NotificationItemsDispatch, AnEmptyTextIsStoredAsAnEmptyPath) {
  EXPECT_EQ(PathOf(Utf16(u"")), L"");
  EXPECT_EQ(Gate().Count("CArpRecord::SetPath()"), 2u);
}

TEST_F(NotificationItemsDispatch, BasicPlaneCharactersKeepTheirValues) {
  EXPECT_EQ(PathOf(Utf16(u"\u00E9\u20AC\uFFFD\uFFFF\u0001")), L"\u00E9\u20AC\uFFFD\uFFFF\u0001");
}

TEST_F(NotificationItemsDispatch, SurrogatePairsAreJoinedIfWideCharactersHave32Bits) {
  EXPECT_EQ(PathOf(Utf16(u"a\U0001F600b")), L"a\U0001F600b");
  EXPECT_EQ(PathOf(Utf16(u"\U00010000")), L"\U00010000");
  EXPECT_EQ(PathOf(Utf16(u"\U0010FFFF")), L"\U0010FFFF");
}

TEST_F(NotificationItemsDispatch, ALoneSurrogateKeepsItsValue) {
  const auto wide = [](std::initializer_list<std::uint32_t> units) {
    std::wstring text;
    for (const std::uint32_t unit : units) text += static_cast<wchar_t>(unit);
    return text;
  };
  const char16_t high = 0xD83D, low = 0xDE00;
  EXPECT_EQ(PathOf(Utf16(std::u16string{u'a', high, u'b'})), wide({'a', 0xD83D, 'b'}));
  EXPECT_EQ(PathOf(Utf16(std::u16string{u'a', low, u'b'})), wide({'a', 0xDE00, 'b'}));
  EXPECT_EQ(PathOf(Utf16(std::u16string{low, high})), wide({0xDE00, 0xD83D}));
  EXPECT_EQ(PathOf(Utf16(std::u16string{high}, false)), wide({0xD83D})) << "at the end of the message";
  EXPECT_EQ(PathOf(Utf16(std::u16string{high}, true)), wide({0xD83D})) << "before the NUL";
  const std::wstring joined = sizeof(wchar_t) == 2 ? wide({0xD83D, 0xD83D, 0xDE00}) : wide({0xD83D, 0x1F600});
  EXPECT_EQ(PathOf(Utf16(std::u16string{high, high, low})), joined);
}

TEST_F(NotificationItemsDispatch, AVeryLongTextIsNotTruncated) {
  const std::u16string text(90000, u'x');
  EXPECT_EQ(PathOf(Utf16(text)), std::wstring(90000, L'x'));
}

// ---------------------------------------------------------------- bounds

TEST_F(NotificationItemsDispatch, AnItemThatStartsAtTheEndOfTheMessageIsABadSize) {
  EXPECT_TRUE(IsBadSize(NotificationBuilder(4098).Item1Size(1)));
  EXPECT_TRUE(IsBadSize(NotificationBuilder(4098).Item2Size(1)));
  EXPECT_TRUE(IsBadSize(NotificationBuilder(4098).Item3Size(1)));
  EXPECT_TRUE(IsBadSize(NotificationBuilder(8204).Item4Present(1)));
}

TEST_F(NotificationItemsDispatch, AnItemThatStartsBeyondTheEndOfTheMessageIsABadSize) {
  EXPECT_TRUE(IsBadSize(NotificationBuilder(4098).Item1Size(4).Item2Size(2).Tail({0, 0, 0, 0})));
  EXPECT_TRUE(IsBadSize(NotificationBuilder(4098).Item1Size(5).Item2Size(2).Tail({0, 0, 0, 0})));
  EXPECT_FALSE(IsBadSize(NotificationBuilder(4098).Item1Size(3).Item2Size(2).Tail({0, 0, 0, 0})));
}

TEST_F(NotificationItemsDispatch, ATextMayStartAtTheLastByte) {
  EXPECT_FALSE(IsBadSize(NotificationBuilder(4098).Item1Size(2).Tail({0})));
  EXPECT_EQ(host.Record()->path, L"");
}

TEST_F(NotificationItemsDispatch, ExtraDataMayEndWithTheMessageButNotBeyondIt) {
  EXPECT_FALSE(IsBadSize(NotificationBuilder(4098).Item3Size(4).Tail({1, 2, 3, 4})));
  EXPECT_TRUE(IsBadSize(NotificationBuilder(4098).Item3Size(5).Tail({1, 2, 3, 4})));
  EXPECT_TRUE(IsBadSize(NotificationBuilder(4098).Item3Size(0xFFFFFFFF).Tail({1, 2, 3, 4})));
}

TEST_F(NotificationItemsDispatch, LengthsThatOverflow32BitsAreABadSize) {
  const Bytes tail = Utf16(u"/p");
  // 156 + 0xFFFFFFFF + 0xFFFFFF68 is 259 in 32 bits, and so on: none of these may wrap around into the message.
  EXPECT_TRUE(IsBadSize(NotificationBuilder(4098).Item1Size(0xFFFFFFFF).Item2Size(2).Tail(tail)));
  EXPECT_TRUE(IsBadSize(NotificationBuilder(4098).Item1Size(0xFFFFFF64).Item2Size(2).Tail(tail)));
  EXPECT_TRUE(IsBadSize(NotificationBuilder(4098).Item1Size(0x80000000).Item2Size(0x80000000).Item3Size(2).Tail(tail)));
  EXPECT_TRUE(IsBadSize(NotificationBuilder(8204)
                            .Item1Size(0x80000000)
                            .Item2Size(0x40000000)
                            .Item3Size(0x40000000)
                            .Item4Present(1)
                            .Tail(tail)));
}

TEST_F(NotificationItemsDispatch, FieldsStoredBeforeABadItemStay) {
  EXPECT_TRUE(IsBadSize(NotificationBuilder(4098).Item1(u"/p").Item2Size(2)));
  EXPECT_EQ(host.Record()->path, L"/p");
  EXPECT_EQ(Gate().Count("CAoArp::Evaluate"), 0u);
}

TEST_F(NotificationItemsDispatch, AnUnusedItemIsNotChecked) {
  // Item 4 matters only for code 8204, and item 1 is ignored if item 4 replaces it.
  EXPECT_FALSE(IsBadSize(NotificationBuilder(4098).Item4Present(1)));
  EXPECT_FALSE(IsBadSize(NotificationBuilder(8205).Item4Present(0xFFFFFFFF)));
}

// ---------------------------------------------------------------- code 8204

TEST_F(NotificationItemsDispatch, Code8204TakesItsPathFromItem4) {
  Settings().toRecord = [](const std::wstring& path) { return L"R:" + path; };
  Dispatch(NotificationBuilder(8204).Item1(u"/one").Item2(u"/two").Item3({9}).Item4(u"/four"));
  EXPECT_EQ(RecordCallsAfterProcess(),
            (Lines{"CUtility::ToRecordString(/four)", "CArpRecord::SetPath(R:/four)", "CUtility::ToRecordString(/two)",
                   "CArpRecord::SetSecondPath(R:/two)", "CUtility::BufferFromBytes(1)", "CArpRecord::SetExtraData(09)",
                   "CArpRecord::SetEventType(0x4017)", "CAoArp::Evaluate(record)"}));
}

TEST_F(NotificationItemsDispatch, Code8204WithoutItem4TakesItem1) {
  Dispatch(NotificationBuilder(8204).Item1(u"/one"));
  EXPECT_EQ(host.Record()->path, L"/one");
}

TEST_F(NotificationItemsDispatch, OtherCodesIgnoreItem4) {
  Dispatch(NotificationBuilder(8203).Item1(u"/one").Item4(u"/four"));
  EXPECT_EQ(host.Record()->path, L"/one");
  Dispatch(NotificationBuilder(8203).Item4(u"/four"));
  EXPECT_EQ(Gate().Count("CArpRecord::SetPath"), 0u);
}

TEST_F(NotificationItemsDispatch, AnyBitOfItem4sFieldMakesItPresent) {
  Dispatch(NotificationBuilder(8204).Item4(u"/four").Item4Present(0x01000000));
  EXPECT_EQ(host.Record()->path, L"/four");
}

// ---------------------------------------------------------------- code 4118

TEST_F(NotificationItemsDispatch, Code4118DropsTheFirst12Characters) {
  Settings().toRecord = [](const std::wstring& path) { return L"R:" + path; };
  Dispatch(NotificationBuilder(4118).Item1(u"0123456789ab/rest"));
  EXPECT_EQ(RecordCallsAfterProcess(),
            (Lines{"CUtility::ToNarrowString(0123456789ab/rest)", "CUtility::ToWideString(/rest)",
                   "CArpRecord::SetPath(/rest)", "CUtility::ToRecordString(/rest)", "CArpRecord::SetPath(R:/rest)",
                   "CArpRecord::SetEventType(0x401e)", "CAoArp::Evaluate(record)"}));
}

TEST_F(NotificationItemsDispatch, Code4118WithExactly12CharactersStoresAnEmptyPath) {
  Dispatch(NotificationBuilder(4118).Item1(u"0123456789ab"));
  EXPECT_EQ(Gate().EntriesOf({"CUtility::ToWideString", "CArpRecord::SetPath"}),
            (Lines{"CUtility::ToWideString()", "CArpRecord::SetPath()", "CArpRecord::SetPath()"}));
}

TEST_F(NotificationItemsDispatch, Code4118WithFewerThan12CharactersKeepsItem1) {
  Settings().toRecord = [](const std::wstring& path) { return L"R:" + path; };
  Dispatch(NotificationBuilder(4118).Item1(u"0123456789a"));
  EXPECT_EQ(RecordCallsAfterProcess(),
            (Lines{"CUtility::ToNarrowString(0123456789a)", "CArpRecord::SetPath(0123456789a)",
                   "CUtility::ToRecordString(0123456789a)", "CArpRecord::SetPath(R:0123456789a)",
                   "CArpRecord::SetEventType(0x401e)", "CAoArp::Evaluate(record)"}));
}

TEST_F(NotificationItemsDispatch, Code4118WithoutItem1StoresNothing) {
  Dispatch(NotificationBuilder(4118).Item2(u"/q"));
  EXPECT_EQ(Gate().Count("CArpRecord::SetPath"), 0u);
  EXPECT_EQ(host.Record()->secondPath, L"/q");
}

}  // namespace fenlux::testing
