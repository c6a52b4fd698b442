// The typed getters of a table.
#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <optional>
#include <utility>

#include "refhost/base/config/config_node.h"
#include "refhost/base/text/similar_words.h"

namespace fenlux::refhost {

bool ConfigTable::Present() const { return view->table != nullptr; }

bool ConfigTable::Has(std::string_view key) const { return view->Find(key) != nullptr; }

const boost::filesystem::path& ConfigTable::File() const { return view->source->file; }

std::uint32_t ConfigTable::Line() const { return PlaceOf(view->place.line); }

bool ConfigTable::Boolean(std::string_view key, bool defaultValue) const {
  const toml::node* value = view->Find(key);
  if (value == nullptr) return defaultValue;
  const auto* flag = value->as_boolean();
  if (flag == nullptr) {
    view->ReportType(*value, view->KeyName(key), "true or false");
    return defaultValue;
  }
  return flag->get();
}

std::int64_t ConfigTable::Integer(std::string_view key, std::int64_t defaultValue, std::int64_t min,
                                  std::int64_t max) const {
  const toml::node* value = view->Find(key);
  if (value == nullptr) return defaultValue;
  return view->ReadInteger(*value, view->KeyName(key), min, max).value_or(defaultValue);
}

std::int64_t ConfigTable::RequiredInteger(std::string_view key, std::int64_t min, std::int64_t max) const {
  if (view->Find(key) == nullptr) view->ReportMissing(key);
  return Integer(key, min, min, max);
}

std::uint32_t ConfigTable::Unsigned(std::string_view key, std::uint32_t defaultValue, std::uint32_t min,
                                    std::uint32_t max) const {
  return static_cast<std::uint32_t>(Integer(key, defaultValue, min, max));
}

std::uint32_t ConfigTable::RequiredUnsigned(std::string_view key, std::uint32_t min, std::uint32_t max) const {
  return static_cast<std::uint32_t>(RequiredInteger(key, min, max));
}

double ConfigTable::Number(std::string_view key, double defaultValue, double min, double max) const {
  const toml::node* value = view->Find(key);
  if (value == nullptr) return defaultValue;
  return view->ReadNumber(*value, view->KeyName(key), min, max).value_or(defaultValue);
}

std::string ConfigTable::Text(std::string_view key, std::string defaultValue) const {
  const toml::node* value = view->Find(key);
  if (value == nullptr) return defaultValue;
  return view->ReadText(*value, view->KeyName(key)).value_or(std::move(defaultValue));
}

std::string ConfigTable::RequiredText(std::string_view key) const {
  const toml::node* value = view->Find(key);
  if (value == nullptr) {
    view->ReportMissing(key);
    return {};
  }
  const std::optional<std::string> text = view->ReadText(*value, view->KeyName(key));
  if (text && text->empty()) view->Report(value->source().begin, view->KeyName(key), "must not be empty");
  return text.value_or(std::string());
}

std::vector<std::string> ConfigTable::Texts(std::string_view key) const {
  std::vector<std::string> texts;
  view->ForEachElement(key, "an array of strings", [&](const toml::node& element, const std::string& name) {
    if (auto text = view->ReadText(element, name)) texts.push_back(*std::move(text));
  });
  return texts;
}

std::vector<std::int64_t> ConfigTable::Integers(std::string_view key, std::int64_t min, std::int64_t max) const {
  std::vector<std::int64_t> integers;
  view->ForEachElement(key, "an array of integers", [&](const toml::node& element, const std::string& name) {
    if (const auto integer = view->ReadInteger(element, name, min, max)) integers.push_back(*integer);
  });
  return integers;
}

std::optional<std::size_t> ConfigTable::ChoiceIndex(std::string_view key,
                                                    const std::vector<std::string_view>& names) const {
  const toml::node* value = view->Find(key);
  if (value == nullptr) return std::nullopt;
  const std::optional<std::string> text = view->ReadText(*value, view->KeyName(key));
  if (!text) return std::nullopt;
  const auto found = std::find(names.begin(), names.end(), *text);
  if (found != names.end()) return static_cast<std::size_t>(found - names.begin());
  view->Report(value->source().begin, view->KeyName(key),
               fmt::format("must be one of {}, not \"{}\"{}", fmt::join(names, ", "), *text, DidYouMean(*text, names)));
  return std::nullopt;
}

boost::filesystem::path ConfigTable::Path(std::string_view key) const {
  const toml::node* value = view->Find(key);
  return value == nullptr ? boost::filesystem::path() : view->ReadPath(*value, view->KeyName(key));
}

boost::filesystem::path ConfigTable::RequiredPath(std::string_view key) const {
  if (view->Find(key) == nullptr) view->ReportMissing(key);
  return Path(key);
}

std::vector<boost::filesystem::path> ConfigTable::Paths(std::string_view key) const {
  std::vector<boost::filesystem::path> paths;
  view->ForEachElement(key, "an array of paths", [&](const toml::node& element, const std::string& name) {
    boost::filesystem::path path = view->ReadPath(element, name);
    if (!path.empty()) paths.push_back(std::move(path));
  });
  return paths;
}

std::string ConfigTable::ExpandedText(std::string_view key, std::string defaultValue) const {
  const toml::node* value = view->Find(key);
  if (value == nullptr) return defaultValue;
  return view->ReadExpanded(*value, view->KeyName(key)).value_or(std::move(defaultValue));
}

ConfigTable ConfigTable::Table(std::string_view key) const {
  const toml::node* value = view->Find(key);
  if (value == nullptr) return ConfigTable(view->Child(nullptr, view->place, view->KeyName(key)));
  const toml::table* table = value->as_table();
  if (table == nullptr) view->ReportType(*value, view->KeyName(key), "a table");
  return ConfigTable(view->Child(table, value->source().begin, view->KeyName(key)));
}

std::vector<ConfigTable> ConfigTable::Tables(std::string_view key) const {
  std::vector<ConfigTable> tables;
  view->ForEachElement(key, "an array of tables", [&](const toml::node& element, const std::string& name) {
    const toml::table* table = element.as_table();
    if (table == nullptr) {
      view->ReportType(element, name, "a table");
      return;
    }
    tables.push_back(ConfigTable(view->Child(table, element.source().begin, name)));
  });
  return tables;
}

std::vector<std::string> ConfigTable::Keys() const {
  std::vector<std::string> keys;
  if (view->table == nullptr) return keys;
  for (auto&& [key, value] : *view->table) keys.emplace_back(key.str());
  return keys;
}

void ConfigTable::Report(std::string_view key, std::string reason) const {
  view->Report(view->PlaceOfKey(key), view->KeyName(key), std::move(reason));
}

void ConfigTable::Warn(std::string_view key, std::string reason) const {
  view->Report(view->PlaceOfKey(key), view->KeyName(key), std::move(reason), /*isWarning=*/true);
}

void ConfigTable::Finish() const { view->Finish(); }

}  // namespace fenlux::refhost
