// The state that the views of one table share. Only base/config includes this file.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "refhost/base/config/config_reader.h"
#include "refhost/base/config/toml.h"

namespace fenlux::refhost {

// The library's positions count from 1; 0 means that there is none, which becomes 1.
std::uint32_t PlaceOf(toml::source_index index);

struct ConfigDocument::Source {
  boost::filesystem::path file;
  ConfigErrors* errors = nullptr;
  toml::table root;
};

// The typed readers report a value that they cannot use and return nullopt.
struct ConfigTable::Node {
  std::shared_ptr<ConfigDocument::Source> source;
  const toml::table* table = nullptr;  // null if the file has no such table
  toml::source_position place;         // of the table, or of the nearest enclosing one
  std::string name;                    // dotted; empty for the root
  bool quiet = false;                  // nothing is reported, because the file itself could not be read
  std::set<std::string, std::less<>> known;
  std::vector<std::shared_ptr<Node>> children;  // in the order of their first use
  std::unordered_map<std::string_view, std::shared_ptr<Node>> childrenByName;
  bool finished = false;

  // The full name of a key of this table; of the table itself if the key is empty.
  std::string KeyName(std::string_view key) const;

  void Report(const toml::source_position& where, std::string keyName, std::string reason,
              bool isWarning = false) const;
  void ReportMissing(std::string_view key) const;
  void ReportType(const toml::node& value, std::string keyName, std::string_view expected) const;

  // The position of the key's value, or of the table if the key is empty or absent.
  toml::source_position PlaceOfKey(std::string_view key);

  // The value of a key; null if it is absent. Marks the key as known.
  const toml::node* Find(std::string_view key);

  std::optional<std::int64_t> ReadInteger(const toml::node& value, const std::string& keyName, std::int64_t min,
                                          std::int64_t max) const;
  std::optional<double> ReadNumber(const toml::node& value, const std::string& keyName, double min, double max) const;
  std::optional<std::string> ReadText(const toml::node& value, const std::string& keyName) const;
  // A string with its variables replaced.
  std::optional<std::string> ReadExpanded(const toml::node& value, const std::string& keyName) const;
  // Returns an empty path instead of nullopt.
  boost::filesystem::path ReadPath(const toml::node& value, const std::string& keyName) const;

  // Calls `each` for every element of the key's array, with the element's name.
  template <typename Each>
  void ForEachElement(std::string_view key, std::string_view expected, const Each& each) {
    const toml::node* value = Find(key);
    if (value == nullptr) return;
    const toml::array* array = value->as_array();
    if (array == nullptr) {
      ReportType(*value, KeyName(key), expected);
      return;
    }
    std::size_t index = 0;
    for (const toml::node& element : *array) each(element, ElementName(key, index++));
  }
  std::string ElementName(std::string_view key, std::size_t index) const;

  // The view of a table in this one; always the same view for the same table.
  std::shared_ptr<Node> Child(const toml::table* child, const toml::source_position& childPlace, std::string childName);

  // Reports unknown keys, here and in all children.
  void Finish();
};

}  // namespace fenlux::refhost
