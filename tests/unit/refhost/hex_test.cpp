// Bytes as hexadecimal digits, and back.
#include "refhost/base/text/hex.h"

#include <gtest/gtest.h>

namespace fenlux::refhost {
namespace {

using Bytes = std::vector<std::uint8_t>;

TEST(Hex, WritesTwoLowerCaseDigitsPerByte) {
  EXPECT_EQ(HexText(Bytes{0x00, 0x0a, 0xff}), "000aff");
  EXPECT_EQ(HexText({}), "");
}

TEST(Hex, ReadsDigitsInEitherCaseWithBlanksBetweenPairs) {
  EXPECT_EQ(BytesFromHex("01fF"), (Bytes{0x01, 0xff}));
  EXPECT_EQ(BytesFromHex(" 01  Fe "), (Bytes{0x01, 0xfe}));
  EXPECT_EQ(BytesFromHex(""), Bytes());
}

TEST(Hex, RejectsEverythingElse) {
  for (const char* text : {"0", "0 1", "0g", "x1", "01,02", "012"}) EXPECT_EQ(BytesFromHex(text), std::nullopt) << text;
}

}  // namespace
}  // namespace fenlux::refhost
