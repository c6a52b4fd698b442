// Reads and checks single values, and reports problems with them.
#include "refhost/base/config/config_node.h"

#include <fmt/format.h>

#include <utility>

#include "refhost/base/config/config_paths.h"
#include "refhost/base/text/similar_words.h"

namespace fenlux::refhost {
namespace {

// `hasMin` and `hasMax` say which bounds to mention; at least one is true.
template <typename Number>
std::string RangeText(Number min, bool hasMin, Number max, bool hasMax, Number value) {
  if (hasMin && hasMax) return fmt::format("must be from {} to {}, not {}", min, max, value);
  return hasMin ? fmt::format("must be at least {}, not {}", min, value)
                : fmt::format("must be at most {}, not {}", max, value);
}

}  // namespace

std::uint32_t PlaceOf(toml::source_index index) { return index == 0 ? 1 : static_cast<std::uint32_t>(index); }

std::string ConfigTable::Node::KeyName(std::string_view key) const {
  if (key.empty()) return name.empty() ? "(file)" : name;
  return name.empty() ? std::string(key) : fmt::format("{}.{}", name, key);
}

std::string ConfigTable::Node::ElementName(std::string_view key, std::size_t index) const {
  return fmt::format("{}[{}]", KeyName(key), index);
}

void ConfigTable::Node::Report(const toml::source_position& where, std::string keyName, std::string reason,
                               bool isWarning) const {
  if (quiet) return;
  source->errors->Add({source->file.string(), PlaceOf(where.line), PlaceOf(where.column), std::move(keyName),
                       std::move(reason), isWarning});
}

toml::source_position ConfigTable::Node::PlaceOfKey(std::string_view key) {
  const toml::node* value = key.empty() ? nullptr : Find(key);
  return value == nullptr ? place : value->source().begin;
}

void ConfigTable::Node::ReportMissing(std::string_view key) const { Report(place, KeyName(key), "is missing"); }

void ConfigTable::Node::ReportType(const toml::node& value, std::string keyName, std::string_view expected) const {
  Report(value.source().begin, std::move(keyName), fmt::format("must be {}", expected));
}

const toml::node* ConfigTable::Node::Find(std::string_view key) {
  known.emplace(key);
  return table == nullptr ? nullptr : table->get(key);
}

std::optional<std::int64_t> ConfigTable::Node::ReadInteger(const toml::node& value, const std::string& keyName,
                                                           std::int64_t min, std::int64_t max) const {
  const auto* integer = value.as_integer();
  if (integer == nullptr) {
    ReportType(value, keyName, "an integer");
    return std::nullopt;
  }
  const std::int64_t number = integer->get();
  if (number < min || number > max) {
    Report(value.source().begin, keyName, RangeText(min, min != kMinInteger, max, max != kMaxInteger, number));
    return std::nullopt;
  }
  return number;
}

std::optional<double> ConfigTable::Node::ReadNumber(const toml::node& value, const std::string& keyName, double min,
                                                    double max) const {
  const std::optional<double> number = value.value<double>();
  if (!number || !value.is_number()) {
    ReportType(value, keyName, "a number");
    return std::nullopt;
  }
  if (!(*number >= min && *number <= max)) {  // also catches NaN
    const bool hasMin = min != -kMaxNumber;
    Report(value.source().begin, keyName, RangeText(min, hasMin, max, max != kMaxNumber || !hasMin, *number));
    return std::nullopt;
  }
  return number;
}

std::optional<std::string> ConfigTable::Node::ReadText(const toml::node& value, const std::string& keyName) const {
  const auto* text = value.as_string();
  if (text == nullptr) {
    ReportType(value, keyName, "a string");
    return std::nullopt;
  }
  return text->get();
}

std::optional<std::string> ConfigTable::Node::ReadExpanded(const toml::node& value, const std::string& keyName) const {
  const std::optional<std::string> text = ReadText(value, keyName);
  if (!text) return std::nullopt;
  Expansion expansion = ExpandVariables(*text);
  if (!expansion.failure.empty()) {
    Report(value.source().begin, keyName, std::move(expansion.failure));
    return std::nullopt;
  }
  return std::move(expansion.text);
}

boost::filesystem::path ConfigTable::Node::ReadPath(const toml::node& value, const std::string& keyName) const {
  if (const auto* text = value.as_string(); text != nullptr && text->get().empty()) {
    Report(value.source().begin, keyName, "must not be empty");
    return {};
  }
  const std::optional<std::string> expanded = ReadExpanded(value, keyName);
  return expanded ? ResolvePath(*expanded, source->file) : boost::filesystem::path();
}

std::shared_ptr<ConfigTable::Node> ConfigTable::Node::Child(const toml::table* child,
                                                            const toml::source_position& childPlace,
                                                            std::string childName) {
  if (const auto existing = childrenByName.find(childName); existing != childrenByName.end()) return existing->second;
  auto node = std::make_shared<Node>();
  node->source = source;
  node->table = child;
  node->place = childPlace;
  node->name = std::move(childName);
  node->quiet = quiet;
  children.push_back(node);
  childrenByName.emplace(node->name, node);
  return node;
}

void ConfigTable::Node::Finish() {
  if (table != nullptr && !finished) {
    const std::vector<std::string_view> names(known.begin(), known.end());
    for (auto&& [key, value] : *table) {
      if (known.contains(key.str())) continue;
      Report(key.source().begin, KeyName(key.str()), "is not a known key" + DidYouMean(key.str(), names));
    }
  }
  finished = true;
  for (const std::shared_ptr<Node>& child : children) child->Finish();
}

}  // namespace fenlux::refhost
