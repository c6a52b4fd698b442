// Translation by table.
#include "refhost/services/locale_service.h"

#include <gtest/gtest.h>

#include "refhost/base/config/config_reader.h"

namespace fenlux::refhost {
namespace {

TEST(LocaleService, TranslatesTextsInItsTableOnly) {
  LocaleService locale(Translations{{"Need stop.", "Halt!"}});
  std::string out = "old";
  EXPECT_EQ(&locale.TranslateText(out, "Need stop.", "Need stop.", 0), &out);
  EXPECT_EQ(out, "Halt!");
  EXPECT_EQ(locale.TranslateText(out, "Driver Interact Ready.", nullptr, 0), "Driver Interact Ready.");
}

TEST(LocaleService, IgnoresTheSecondText) {
  LocaleService locale(Translations{{"a", "b"}});
  std::string out;
  EXPECT_EQ(locale.TranslateText(out, "x", "a", 0), "x");
}

TEST(LocaleService, ANewTableAppliesAtOnce) {
  LocaleService locale(Translations{});
  locale.Replace(Translations{{"a", "b"}});
  std::string out;
  EXPECT_EQ(locale.TranslateText(out, "a", "a", 0), "b");
}

TEST(LocaleService, AcceptsStringsOnly) {
  ConfigErrors errors;
  const ConfigDocument document("'a' = 'b'\n'c' = 3\n", "t.toml", errors);
  const Translations translations = ReadTranslations(document.Root());
  EXPECT_EQ(translations.at("a"), "b");
  EXPECT_EQ(errors.Text(), "t.toml:2:7: c: must be a string\n");
}

}  // namespace
}  // namespace fenlux::refhost
