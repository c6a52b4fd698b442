#include "refhost/emulator/utf16.h"

#include <gtest/gtest.h>

namespace fenlux::testing {
namespace {

using refhost::Utf16FromUtf8;
using refhost::Utf8FromUtf16;

TEST(Utf16, CarriesEveryPlaneThereAndBack) {
  const std::string text = "a\xc3\xa9\xe2\x82\xac\xf0\x9f\x90\xa7";
  EXPECT_EQ(Utf16FromUtf8(text), u"a\u00e9\u20ac\U0001f427");
  EXPECT_EQ(Utf8FromUtf16(u"a\u00e9\u20ac\U0001f427"), text);
}

TEST(Utf16, ReplacesWhatIsNoText) {
  EXPECT_EQ(Utf16FromUtf8("a\xff\x62"),
            u"a\ufffd"
            u"b");
  EXPECT_EQ(Utf16FromUtf8("\xe2\x82"), u"\ufffd\ufffd");
  const char16_t lone[] = {0xd83d, u'x', 0xdc27, 0};
  EXPECT_EQ(Utf8FromUtf16(lone), "\xef\xbf\xbdx\xef\xbf\xbd");
  const char16_t last[] = {u'x', 0xd83d, 0};
  EXPECT_EQ(Utf8FromUtf16(last), "x\xef\xbf\xbd");
}

TEST(Utf16, EmptyStaysEmpty) {
  EXPECT_EQ(Utf16FromUtf8(""), u"");
  EXPECT_EQ(Utf8FromUtf16(u""), "");
}

}  // namespace
}  // namespace fenlux::testing
