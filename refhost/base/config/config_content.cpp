// Compares two trees of tables. Arrays, including arrays of tables, are compared as a whole.
#include "refhost/base/config/config_content.h"

#include <set>

#include "refhost/base/config/config_node.h"

namespace fenlux::refhost {
namespace {

using Changes = std::vector<ConfigContent::Change>;

std::set<std::string_view> Keys(const toml::table* table) {
  std::set<std::string_view> keys;
  if (table == nullptr) return keys;
  for (auto&& [key, value] : *table) keys.insert(key.str());
  return keys;
}

const toml::node* Value(const toml::table* table, std::string_view key) {
  return table == nullptr ? nullptr : table->get(key);
}

const toml::table* AsTable(const toml::node* value) { return value == nullptr ? nullptr : value->as_table(); }

bool Equal(const toml::node* left, const toml::node* right) {
  if (left == nullptr || right == nullptr) return left == right;
  return toml::node_view<const toml::node>(left) == toml::node_view<const toml::node>(right);
}

void Compare(const toml::table* older, const toml::table* newer, const std::string& prefix, Changes& changes) {
  std::set<std::string_view> keys = Keys(older);
  keys.merge(Keys(newer));
  for (const std::string_view key : keys) {
    const toml::node* const before = Value(older, key);
    const toml::node* const after = Value(newer, key);
    const std::string name = prefix + std::string(key);
    if (AsTable(before) != nullptr || AsTable(after) != nullptr) {
      Compare(AsTable(before), AsTable(after), name + ".", changes);
    } else if (!Equal(before, after)) {
      const toml::node* const shown = after == nullptr ? before : after;
      changes.push_back({name, PlaceOf(shown->source().begin.line)});
    }
  }
}

}  // namespace

ConfigContent::ConfigContent(const ConfigDocument& document) : source(document.Shared()) {}

std::vector<ConfigContent::Change> ConfigContent::ChangesIn(const ConfigContent& newer) const {
  Changes changes;
  Compare(source == nullptr ? nullptr : &source->root, newer.source == nullptr ? nullptr : &newer.source->root, "",
          changes);
  return changes;
}

}  // namespace fenlux::refhost
