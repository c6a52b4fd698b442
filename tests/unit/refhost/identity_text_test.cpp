// Identity blocks as text.
#include "refhost/services/events/identity_text.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <vector>

namespace fenlux::refhost {
namespace {

std::string TextOf(const std::vector<std::uint8_t>& bytes) {
  std::array<std::uint8_t, kIdentityBlockSize> block{};
  std::copy(bytes.begin(), bytes.end(), block.begin());
  return IdentityText(block);
}

TEST(IdentityText, FormatsASecurityIdentifier) {
  EXPECT_EQ(TextOf({1, 1, 0, 0, 0, 0, 0, 5, 18, 0, 0, 0}), "S-1-5-18");
  EXPECT_EQ(TextOf({1, 5, 0, 0, 0, 0, 0, 5, 21, 0, 0, 0, 1, 0, 0, 0, 2, 0, 0, 0, 3, 0, 0, 0, 0xE8, 3, 0, 0}),
            "S-1-5-21-1-2-3-1000");
  EXPECT_EQ(TextOf({1, 1, 0x01, 0, 0, 0, 0, 0, 0xFF, 0xFF, 0xFF, 0xFF}), "S-1-1099511627776-4294967295");
}

TEST(IdentityText, FormatsAsManySubAuthoritiesAsFitInTheBlock) {
  const std::string longest = TextOf({1, 14, 0, 0, 0, 0, 0, 5});
  EXPECT_EQ(std::count(longest.begin(), longest.end(), '-'), 16);
  EXPECT_EQ(TextOf({1, 15, 0, 0, 0, 0, 0, 5}), "010f000000000005");
}

TEST(IdentityText, FormatsOtherBytesAsDigits) {
  EXPECT_EQ(TextOf({}), "");
  EXPECT_EQ(TextOf({2, 1, 0, 0xAB}), "020100ab");
  EXPECT_EQ(TextOf({1, 0, 0, 0, 0, 0, 0, 5}), "0100000000000005");
}

}  // namespace
}  // namespace fenlux::refhost
