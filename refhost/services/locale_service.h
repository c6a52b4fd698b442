// Translates texts with a table from the configuration. Text without an entry stays unchanged.
#pragma once

#include <map>
#include <string>

#include "host/locale.h"
#include "refhost/base/live_value.h"

namespace fenlux::refhost {

class ConfigTable;

using Translations = std::map<std::string, std::string, std::less<>>;

// Reads [translations], whose keys are the module's texts.
Translations ReadTranslations(const ConfigTable& table);

class LocaleService final : public CLocale {
 public:
  explicit LocaleService(Translations initial) : translations(std::move(initial)) {}

  std::string& TranslateText(std::string& out, const char* text, const char* second, std::uint32_t flags) override;

  // Any thread.
  void Replace(Translations replacement) { translations.Set(std::move(replacement)); }

 private:
  LiveValue<Translations> translations;
};

}  // namespace fenlux::refhost
