// What changed between two versions of a configuration.
#include "refhost/base/config/config_content.h"

#include <gtest/gtest.h>

namespace fenlux::refhost {
namespace {

ConfigContent Content(const std::string& text) {
  ConfigErrors errors;
  const ConfigContent content(ConfigDocument(text, "c.toml", errors));
  EXPECT_EQ(errors.Text(), "");
  return content;
}

// "key:line" for each change.
std::string Changes(const std::string& older, const std::string& newer) {
  std::string text;
  for (const auto& change : Content(older).ChangesIn(Content(newer))) {
    text += change.key + ":" + std::to_string(change.line) + " ";
  }
  return text;
}

TEST(ConfigContent, NamesChangedAddedAndRemovedSettings) {
  EXPECT_EQ(Changes("a = 1\n[t]\nb = 'x'\n", "a = 1\n[t]\nb = 'x'\n"), "");
  EXPECT_EQ(Changes("a = 1\n[t]\nb = 'x'\n", "\na = 2\n[t]\nb = 'y'\n"), "a:2 t.b:4 ");
  EXPECT_EQ(Changes("a = 1\n", "[t.u]\nb = true\n"), "a:1 t.u.b:2 ");
  EXPECT_EQ(Changes("a = 1\n", "a = '1'\n"), "a:1 ");
}

TEST(ConfigContent, IgnoresOrderAndComments) {
  EXPECT_EQ(Changes("a = 1\nb = [1, 2]\n", "# later\nb = [1, 2]\na = 1\n"), "");
}

TEST(ConfigContent, ComparesArraysAsAWhole) {
  EXPECT_EQ(Changes("b = [1, 2]\n", "b = [2, 1]\n"), "b:1 ");
  EXPECT_EQ(Changes("[[r]]\na = 1\n[[r]]\na = 2\n", "[[r]]\na = 1\n[[r]]\na = 3\n"), "r:1 ");
}

TEST(ConfigContent, EmptyContentHasNoSettings) {
  EXPECT_EQ(ConfigContent().ChangesIn(ConfigContent()).size(), 0U);
  EXPECT_EQ(ConfigContent().ChangesIn(Content("a = 1\n")).size(), 1U);
}

}  // namespace
}  // namespace fenlux::refhost
