// Network-control items: reading them from a file, and encoding and decoding them in a request.
#include "refhost/app/control/net_item_file.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "refhost/base/config/config_reader.h"
#include "tests/support/temporary_directory.h"

namespace fenlux::refhost {
namespace {

using fenlux::testing::TemporaryDirectory;

TEST(NetItemFile, ReturnsItsItemsInOrder) {
  const TemporaryDirectory directory;
  ConfigErrors errors;
  const NetControlItems items =
      LoadNetItems(directory.Write("i.toml", "[[items]]\nopaque = '01" + std::string(92, '0') +
                                                 "fF'\nvalue = 4294967295\n[[items]]\nopaque_text = 'hi'\nvalue = 0\n"),
                   errors);
  EXPECT_EQ(errors.Text(), "");
  ASSERT_EQ(items.size(), 2U);
  EXPECT_EQ(items[0].opaque[0], 1);
  EXPECT_EQ(items[0].opaque[47], 0xFF);
  EXPECT_EQ(items[0].value, 4294967295U);
  EXPECT_EQ(items[1].opaque[0], 'h');
  EXPECT_EQ(items[1].opaque[2], 0);
  EXPECT_EQ(items[1].value, 0U);
}

TEST(NetItemFile, ReportsEveryError) {
  const TemporaryDirectory directory;
  ConfigErrors errors;
  const std::string file = directory
                               .Write("i.toml",
                                      "[[items]]\nopaque = '12'\nvalue = -1\n[[items]]\nvalue = 1\n"
                                      "[[items]]\nopaque = 'x'\nopaque_text = '" +
                                          std::string(49, 'x') + "'\nvalue = 1\n")
                               .string();
  LoadNetItems(file, errors);
  EXPECT_EQ(errors.Text(), file + ":2:10: items[0].opaque: must be 96 hexadecimal digits\n" + file +
                               ":3:9: items[0].value: must be from 0 to 4294967295, not -1\n" + file +
                               ":4:1: items[1].opaque: is missing\n" + file +
                               ":8:15: items[2].opaque_text: cannot be combined with opaque\n" + file +
                               ":8:15: items[2].opaque_text: has 49 bytes; an item holds 48\n");
}

TEST(NetItemFile, ItemsSurviveEncodingAndDecoding) {
  NetControlItems items(3);
  for (std::size_t index = 0; index < items.size(); ++index) {
    items[index].opaque.fill(static_cast<std::uint8_t>(0xA0 + index));
    items[index].value = static_cast<std::uint32_t>(index * 1000);
  }
  const NetControlItems decoded = DecodeNetItems(EncodeNetItems(items));
  ASSERT_EQ(decoded.size(), 3U);
  for (std::size_t index = 0; index < items.size(); ++index) {
    EXPECT_EQ(decoded[index].opaque, items[index].opaque);
    EXPECT_EQ(decoded[index].value, items[index].value);
  }
  EXPECT_TRUE(DecodeNetItems(EncodeNetItems({})).empty());
}

TEST(NetItemFile, RefusesMalformedItems) {
  const std::string digits(96, '0');
  const std::vector<std::string> texts{std::string("x"), digits, digits + ":",           digits + ":x",
                                       digits + ":1x",   "00:1", digits + ":4294967296", "," + digits + ":1"};
  for (const std::string& text : texts) {
    EXPECT_THROW(DecodeNetItems(text), std::invalid_argument) << text;
  }
}

}  // namespace
}  // namespace fenlux::refhost
