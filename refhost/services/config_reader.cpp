// The one place that knows the TOML library: it is large, and everything else compiles without it.
#include "refhost/services/config_reader.h"

// The library is used as headers: the shared library that some systems package is then not needed at run time.
#define TOML_HEADER_ONLY 1
#define TOML_ENABLE_FORMATTERS 0
// Its parser asserts that a key begins well before it reports one that does not ("[" and a control character), so an
// assertion would end the host over a typing error in its file.
#define TOML_ASSERT(expr) static_assert(true)
#include <toml++/toml.h>

#include <algorithm>
#include <boost/filesystem/operations.hpp>
#include <map>
#include <optional>
#include <set>
#include <sstream>

#include "refhost/services/environment.h"
#include "refhost/services/file_bytes.h"

namespace fenlux::refhost {
namespace {

constexpr std::uint32_t kNoPlace = 1;

std::uint32_t PlaceOf(toml::source_index index) { return index == 0 ? kNoPlace : static_cast<std::uint32_t>(index); }

std::string JoinNames(const std::vector<std::string_view>& names) {
  std::string joined;
  for (const std::string_view name : names) {
    if (!joined.empty()) joined += ", ";
    joined += name;
  }
  return joined;
}

// A number as a person would write it.
std::string NumberText(double number) {
  std::ostringstream text;
  text.imbue(std::locale::classic());
  text << number;
  return text.str();
}

std::string RangeText(const std::string& least, bool hasLeast, const std::string& most, bool hasMost) {
  if (hasLeast && hasMost) return "must be from " + least + " to " + most;
  return hasLeast ? "must be at least " + least : "must be at most " + most;
}

}  // namespace

std::string ConfigError::Text() const {
  return file + ":" + std::to_string(line) + ":" + std::to_string(column) + ": " + key + ": " + reason;
}

void ConfigErrors::Add(ConfigError error) { errors_.push_back(std::move(error)); }

std::vector<ConfigError> ConfigErrors::Sorted() const {
  std::map<std::string, std::size_t> fileOrder;
  for (const ConfigError& error : errors_) fileOrder.emplace(error.file, fileOrder.size());
  std::vector<ConfigError> sorted = errors_;
  std::stable_sort(sorted.begin(), sorted.end(), [&](const ConfigError& left, const ConfigError& right) {
    return std::tuple(fileOrder[left.file], left.line, left.column) <
           std::tuple(fileOrder[right.file], right.line, right.column);
  });
  return sorted;
}

std::string ConfigErrors::Text() const {
  std::string text;
  for (const ConfigError& error : Sorted()) text += error.Text() + "\n";
  return text;
}

struct ConfigDocument::Source {
  boost::filesystem::path file;
  ConfigErrors* errors = nullptr;
  toml::table root;
};

struct ConfigTable::Node {
  std::shared_ptr<ConfigDocument::Source> source;
  const toml::table* table = nullptr;  // empty where the file has no such table
  toml::source_position place;         // of the table, or of the nearest one around it
  std::string name;                    // dotted; empty for the root
  bool quiet = false;                  // nothing is reported: the file itself could not be read
  std::set<std::string, std::less<>> asked;
  std::vector<std::shared_ptr<Node>> taken;
  bool finished = false;

  std::string KeyName(std::string_view key) const {
    if (key.empty()) return name.empty() ? "(file)" : name;
    return name.empty() ? std::string(key) : name + "." + std::string(key);
  }

  void Report(const toml::source_position& where, std::string keyName, std::string reason) const {
    if (quiet) return;
    source->errors->Add(
        {source->file.string(), PlaceOf(where.line), PlaceOf(where.column), std::move(keyName), std::move(reason)});
  }

  // The value of a key, from now on asked for; nothing where it is absent.
  const toml::node* Find(std::string_view key) {
    asked.emplace(key);
    return table == nullptr ? nullptr : table->get(key);
  }

  void ReportMissing(std::string_view key) const { Report(place, KeyName(key), "is missing"); }

  void ReportType(const toml::node& node, std::string keyName, std::string_view wanted) const {
    Report(node.source().begin, std::move(keyName), "must be " + std::string(wanted));
  }

  std::optional<std::int64_t> IntegerOf(const toml::node& node, const std::string& keyName, std::int64_t least,
                                        std::int64_t most) const {
    const auto* value = node.as_integer();
    if (value == nullptr) {
      ReportType(node, keyName, "an integer");
      return std::nullopt;
    }
    if (value->get() < least || value->get() > most) {
      Report(node.source().begin, keyName,
             RangeText(std::to_string(least), least != kMinInteger, std::to_string(most), most != kMaxInteger) +
                 ", not " + std::to_string(value->get()));
      return std::nullopt;
    }
    return value->get();
  }

  std::optional<std::string> TextOf(const toml::node& node, const std::string& keyName) const {
    const auto* value = node.as_string();
    if (value == nullptr) {
      ReportType(node, keyName, "a text");
      return std::nullopt;
    }
    return value->get();
  }

  // The text with every "${NAME}" replaced.
  std::optional<std::string> Expand(const std::string& text, const toml::node& node, const std::string& keyName) const {
    std::string expanded;
    std::size_t at = 0;
    for (;;) {
      const std::size_t open = text.find("${", at);
      if (open == std::string::npos) return expanded + text.substr(at);
      expanded += text.substr(at, open - at);
      const std::size_t close = text.find('}', open);
      if (close == std::string::npos) {
        Report(node.source().begin, keyName, "has a \"${\" without its \"}\"");
        return std::nullopt;
      }
      const std::string variable = text.substr(open + 2, close - open - 2);
      const std::optional<std::string> value = EnvironmentText(variable);
      if (!value) {
        Report(node.source().begin, keyName, "names the environment variable " + variable + ", which is not set");
        return std::nullopt;
      }
      expanded += *value;
      at = close + 1;
    }
  }

  boost::filesystem::path PathOf(const toml::node& node, const std::string& keyName) const {
    const std::optional<std::string> text = TextOf(node, keyName);
    if (!text) return {};
    if (text->empty()) {
      Report(node.source().begin, keyName, "must not be empty");
      return {};
    }
    const std::optional<std::string> expanded = Expand(*text, node, keyName);
    if (!expanded) return {};
    const boost::filesystem::path path = *expanded;
    if (path.is_absolute()) return path;
    const boost::filesystem::path normal =
        boost::filesystem::absolute(source->file.parent_path() / path).lexically_normal();
    return normal.filename() == "." ? normal.parent_path() : normal;
  }

  // Calls `each` for every element of the array under the key, with the element's own name.
  template <typename Each>
  void ForEachElement(std::string_view key, std::string_view wanted, const Each& each) {
    const toml::node* node = Find(key);
    if (node == nullptr) return;
    const toml::array* array = node->as_array();
    if (array == nullptr) {
      ReportType(*node, KeyName(key), wanted);
      return;
    }
    std::size_t index = 0;
    for (const toml::node& element : *array) each(element, KeyName(key) + "[" + std::to_string(index++) + "]");
  }

  // A table taken twice is one view: what either taker asked for is asked for.
  std::shared_ptr<Node> Take(const toml::table* child, const toml::source_position& childPlace, std::string childName) {
    for (const std::shared_ptr<Node>& known : taken) {
      if (known->name == childName) return known;
    }
    auto node = std::make_shared<Node>();
    node->source = source;
    node->table = child;
    node->place = childPlace;
    node->name = std::move(childName);
    node->quiet = quiet;
    taken.push_back(node);
    return node;
  }

  void Finish() {
    if (table != nullptr && !finished) {
      for (auto&& [key, value] : *table) {
        if (asked.find(key.str()) == asked.end()) {
          Report(key.source().begin, KeyName(key.str()), "is not a known key");
        }
      }
    }
    finished = true;
    for (const std::shared_ptr<Node>& child : taken) child->Finish();
  }
};

ConfigDocument::ConfigDocument(const boost::filesystem::path& file, ConfigErrors& errors)
    : source_(std::make_shared<Source>()) {
  source_->file = file;
  source_->errors = &errors;
  const std::optional<std::string> text = ReadFileBytes(file);
  if (!text) {
    errors.Add({file.string(), kNoPlace, kNoPlace, "(file)", "cannot be read"});
  } else {
    Parse(*text);
  }
  MakeRoot();
}

ConfigDocument::ConfigDocument(std::string_view text, const boost::filesystem::path& file, ConfigErrors& errors)
    : source_(std::make_shared<Source>()) {
  source_->file = file;
  source_->errors = &errors;
  Parse(text);
  MakeRoot();
}

void ConfigDocument::Parse(std::string_view text) {
  try {
    source_->root = toml::parse(text, source_->file.string());
    parsed_ = true;
  } catch (const toml::parse_error& error) {
    const toml::source_position where = error.source().begin;
    source_->errors->Add({source_->file.string(), PlaceOf(where.line), PlaceOf(where.column), "(syntax)",
                          std::string(error.description())});
  }
}

void ConfigDocument::MakeRoot() {
  auto node = std::make_shared<ConfigTable::Node>();
  node->source = source_;
  node->table = &source_->root;
  node->place = {kNoPlace, kNoPlace};
  node->quiet = !parsed_;
  root_ = std::make_shared<ConfigTable>(ConfigTable(std::move(node)));
}

bool ConfigTable::Present() const { return node_->table != nullptr; }

bool ConfigTable::Has(std::string_view key) const { return node_->Find(key) != nullptr; }

const boost::filesystem::path& ConfigTable::File() const { return node_->source->file; }

bool ConfigTable::Boolean(std::string_view key, bool standard) const {
  const toml::node* node = node_->Find(key);
  if (node == nullptr) return standard;
  const auto* value = node->as_boolean();
  if (value == nullptr) {
    node_->ReportType(*node, node_->KeyName(key), "true or false");
    return standard;
  }
  return value->get();
}

std::int64_t ConfigTable::Integer(std::string_view key, std::int64_t standard, std::int64_t least,
                                  std::int64_t most) const {
  const toml::node* node = node_->Find(key);
  if (node == nullptr) return standard;
  return node_->IntegerOf(*node, node_->KeyName(key), least, most).value_or(standard);
}

std::int64_t ConfigTable::RequiredInteger(std::string_view key, std::int64_t least, std::int64_t most) const {
  if (node_->Find(key) == nullptr) {
    node_->ReportMissing(key);
    return least;
  }
  return Integer(key, least, least, most);
}

std::uint32_t ConfigTable::Unsigned(std::string_view key, std::uint32_t standard, std::uint32_t least,
                                    std::uint32_t most) const {
  return static_cast<std::uint32_t>(Integer(key, standard, least, most));
}

std::uint32_t ConfigTable::RequiredUnsigned(std::string_view key, std::uint32_t least, std::uint32_t most) const {
  return static_cast<std::uint32_t>(RequiredInteger(key, least, most));
}

double ConfigTable::Number(std::string_view key, double standard, double least, double most) const {
  const toml::node* node = node_->Find(key);
  if (node == nullptr) return standard;
  const std::optional<double> value = node->value<double>();
  if (!value || !node->is_number()) {
    node_->ReportType(*node, node_->KeyName(key), "a number");
    return standard;
  }
  if (!(*value >= least && *value <= most)) {  // written so that a value that is no number fails too
    node_->Report(node->source().begin, node_->KeyName(key),
                  RangeText(NumberText(least), least != -kMaxNumber, NumberText(most),
                            most != kMaxNumber || least == -kMaxNumber) +
                      ", not " + NumberText(*value));
    return standard;
  }
  return *value;
}

std::string ConfigTable::Text(std::string_view key, std::string standard) const {
  const toml::node* node = node_->Find(key);
  if (node == nullptr) return standard;
  return node_->TextOf(*node, node_->KeyName(key)).value_or(std::move(standard));
}

std::string ConfigTable::RequiredText(std::string_view key) const {
  const toml::node* node = node_->Find(key);
  if (node == nullptr) {
    node_->ReportMissing(key);
    return {};
  }
  const std::optional<std::string> text = node_->TextOf(*node, node_->KeyName(key));
  if (text && text->empty()) node_->Report(node->source().begin, node_->KeyName(key), "must not be empty");
  return text.value_or(std::string());
}

std::vector<std::string> ConfigTable::Texts(std::string_view key) const {
  std::vector<std::string> texts;
  node_->ForEachElement(key, "a list of texts", [&](const toml::node& element, const std::string& name) {
    if (auto text = node_->TextOf(element, name)) texts.push_back(*std::move(text));
  });
  return texts;
}

std::vector<std::int64_t> ConfigTable::Integers(std::string_view key, std::int64_t least, std::int64_t most) const {
  std::vector<std::int64_t> integers;
  node_->ForEachElement(key, "a list of integers", [&](const toml::node& element, const std::string& name) {
    if (const auto integer = node_->IntegerOf(element, name, least, most)) integers.push_back(*integer);
  });
  return integers;
}

int ConfigTable::ChoiceIndex(std::string_view key, const std::vector<std::string_view>& names) const {
  const toml::node* node = node_->Find(key);
  if (node == nullptr) return -1;
  const std::optional<std::string> text = node_->TextOf(*node, node_->KeyName(key));
  if (!text) return -1;
  const auto found = std::find(names.begin(), names.end(), *text);
  if (found != names.end()) return static_cast<int>(found - names.begin());
  node_->Report(node->source().begin, node_->KeyName(key),
                "must be one of " + JoinNames(names) + ", not \"" + *text + "\"");
  return -1;
}

boost::filesystem::path ConfigTable::Path(std::string_view key) const {
  const toml::node* node = node_->Find(key);
  return node == nullptr ? boost::filesystem::path() : node_->PathOf(*node, node_->KeyName(key));
}

boost::filesystem::path ConfigTable::RequiredPath(std::string_view key) const {
  if (node_->Find(key) == nullptr) node_->ReportMissing(key);
  return Path(key);
}

std::vector<boost::filesystem::path> ConfigTable::Paths(std::string_view key) const {
  std::vector<boost::filesystem::path> paths;
  node_->ForEachElement(key, "a list of paths", [&](const toml::node& element, const std::string& name) {
    boost::filesystem::path path = node_->PathOf(element, name);
    if (!path.empty()) paths.push_back(std::move(path));
  });
  return paths;
}

std::string ConfigTable::ExpandedText(std::string_view key, std::string standard) const {
  const toml::node* node = node_->Find(key);
  if (node == nullptr) return standard;
  const std::optional<std::string> text = node_->TextOf(*node, node_->KeyName(key));
  if (!text) return standard;
  return node_->Expand(*text, *node, node_->KeyName(key)).value_or(std::move(standard));
}

ConfigTable ConfigTable::Table(std::string_view key) const {
  const toml::node* node = node_->Find(key);
  if (node == nullptr) return ConfigTable(node_->Take(nullptr, node_->place, node_->KeyName(key)));
  const toml::table* table = node->as_table();
  if (table == nullptr) node_->ReportType(*node, node_->KeyName(key), "a table");
  return ConfigTable(node_->Take(table, node->source().begin, node_->KeyName(key)));
}

std::vector<ConfigTable> ConfigTable::Tables(std::string_view key) const {
  std::vector<ConfigTable> tables;
  node_->ForEachElement(key, "an array of tables", [&](const toml::node& element, const std::string& name) {
    const toml::table* table = element.as_table();
    if (table == nullptr) {
      node_->ReportType(element, name, "a table");
      return;
    }
    tables.push_back(ConfigTable(node_->Take(table, element.source().begin, name)));
  });
  return tables;
}

std::vector<std::string> ConfigTable::Keys() const {
  std::vector<std::string> keys;
  if (node_->table == nullptr) return keys;
  for (auto&& [key, value] : *node_->table) keys.emplace_back(key.str());
  return keys;
}

void ConfigTable::Report(std::string_view key, std::string reason) const {
  const toml::node* node = key.empty() ? nullptr : node_->Find(key);
  node_->Report(node == nullptr ? node_->place : node->source().begin, node_->KeyName(key), std::move(reason));
}

void ConfigTable::Finish() const { node_->Finish(); }

}  // namespace fenlux::refhost
