// Conversions of valid and invalid text.
#include "refhost/base/text/utf_text.h"

#include <gtest/gtest.h>

namespace fenlux::refhost {
namespace {

TEST(UtfText, ConvertsCharactersOfEveryLength) {
  const std::string narrow = "a\u00fc\u20ac\U0001F600";
  const std::wstring wide = L"a\u00fc\u20ac\U0001F600";
  EXPECT_EQ(WideFromNarrow(narrow), wide);
  EXPECT_EQ(NarrowFromWide(wide), narrow);
  EXPECT_EQ(Utf16FromWide(wide), u"a\u00fc\u20ac\U0001F600");
  EXPECT_EQ(Utf16FromNarrow(narrow), u"a\u00fc\u20ac\U0001F600");
  EXPECT_EQ(NarrowFromUtf16(u"a\u00fc\u20ac\U0001F600"), narrow);
}

TEST(UtfText, EmptyStaysEmpty) {
  EXPECT_EQ(WideFromNarrow(""), L"");
  EXPECT_EQ(Utf16FromNarrow(""), u"");
  EXPECT_EQ(NarrowFromUtf16(u""), "");
}

TEST(UtfText, ReplacesEachInvalidUnitOnly) {
  EXPECT_EQ(WideFromNarrow("a\xFF"
                           "b"),
            L"a\uFFFDb");
  EXPECT_EQ(WideFromNarrow("\xC3"
                           "a"),
            L"\uFFFDa");
  EXPECT_EQ(WideFromNarrow("\xC3"), L"\uFFFD");
  EXPECT_EQ(NarrowFromWide(std::wstring(1, static_cast<wchar_t>(0xD800)) + L"x"), "\uFFFDx");
  EXPECT_NE(WideFromNarrow("/a\xFE"), WideFromNarrow("/a"));
  EXPECT_EQ(Utf16FromNarrow("\xE2\x82"), u"\uFFFD\uFFFD");
}

TEST(UtfText, ReplacesUnpairedSurrogates) {
  constexpr char16_t kApart[] = {0xD83D, u'x', 0xDC27, 0};
  EXPECT_EQ(NarrowFromUtf16(kApart), "\uFFFDx\uFFFD");
  constexpr char16_t kLast[] = {u'x', 0xD83D, 0};
  EXPECT_EQ(NarrowFromUtf16(kLast), "x\uFFFD");
}

TEST(UtfText, KeepsZeros) { EXPECT_EQ(WideFromNarrow(std::string_view("a\0b", 3)), std::wstring(L"a\0b", 3)); }

TEST(UtfText, EscapesControlCharacters) {
  EXPECT_EQ(Printable("a\nb\r\tc\x1b\x7f"), "a\\nb\\r\\tc\\x1b\\x7f");
  EXPECT_EQ(Printable("\u0085\u00fc"), "\\x85\u00fc");
  EXPECT_EQ(Printable("\xFF"), "\uFFFD");
}

TEST(UtfText, EscapesCharactersThatReorderHideOrBreakText) {
  EXPECT_EQ(Printable("a\u202egpj.exe"), "a\\u202egpj.exe");
  EXPECT_EQ(Printable("\u2028\u2029\u200b\u200f\u061c\u2066\ufeff"),
            "\\u2028\\u2029\\u200b\\u200f\\u061c\\u2066\\ufeff");
  EXPECT_EQ(Printable("\u00ad\U000e0041"), "\\xad\\U000e0041");
  EXPECT_EQ(Printable("\u2027\u2030\u4e2d\U0001f427"), "\u2027\u2030\u4e2d\U0001f427");
}

TEST(UtfText, EscapesBackslashesSoThatNothingLooksEscaped) {
  EXPECT_EQ(Printable("a\\nb"), "a\\\\nb");
  EXPECT_NE(Printable("a\\nb"), Printable("a\nb"));
}

TEST(UtfText, CanKeepTheLinesOfAText) { EXPECT_EQ(PrintableLines("a\nb\r\u202e\\\n"), "a\nb\\r\\u202e\\\\\n"); }

TEST(UtfText, EscapesInJsonAsJsonDoes) {
  EXPECT_EQ(PrintableJson("{\"a\\\\\":\"\u202e\x7f\u0085\U000e0041\u00fc\"}\n"),
            "{\"a\\\\\":\"\\u202e\\u007f\\u0085\\udb40\\udc41\u00fc\"}\n");
}

}  // namespace
}  // namespace fenlux::refhost
