// Translates texts, and reads the table of translations.
#include "refhost/services/locale_service.h"

#include <string_view>

#include "refhost/base/config/config_reader.h"

namespace fenlux::refhost {

Translations ReadTranslations(const ConfigTable& table) {
  Translations translations;
  for (const std::string& text : table.Keys()) translations.emplace(text, table.RequiredText(text));
  return translations;
}

std::string& LocaleService::TranslateText(std::string& out, const char* text, const char* /*second*/,
                                          std::uint32_t /*flags*/) {
  const std::shared_ptr<const Translations> current = translations.Get();
  const auto found = current->find(std::string_view(text));
  return out = found == current->end() ? text : found->second.c_str();
}

}  // namespace fenlux::refhost
