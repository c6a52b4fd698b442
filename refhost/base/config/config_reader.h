// Reads TOML files and reports every problem in a file with its position, not just the first one.
//
// A caller reads its keys from a ConfigTable, gets a usable value for each whatever the file contains, and then calls
// Finish, which reports all other keys as unknown. Nothing here throws because of a file's content.
#pragma once

#include <boost/filesystem/path.hpp>
#include <cstdint>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "refhost/base/config/config_errors.h"

namespace fenlux::refhost {

class ConfigTable;

// One parsed file. Its tables may outlive it; `errors` must outlive both.
class ConfigDocument {
 public:
  // Reads and parses `file`. If the file cannot be read or has a syntax error, that is the only error reported, and the
  // root table is empty. A character that TOML does not allow outside strings and comments is reported before any
  // other syntax error.
  ConfigDocument(const boost::filesystem::path& file, ConfigErrors& errors);
  // Parses text in memory. `file` is its name in errors; its relative paths start at the directory of `file`.
  ConfigDocument(std::string_view text, const boost::filesystem::path& file, ConfigErrors& errors);

  // Whether the file could be parsed.
  bool Parsed() const { return parsed; }
  // Always the same view.
  const ConfigTable& Root() const { return *root; }

  struct Source;
  // The parsed content; it never changes.
  std::shared_ptr<const Source> Shared() const { return source; }

 private:
  void Parse(std::string_view text);
  void ReportSyntax(std::uint32_t line, std::uint32_t column, std::string reason);
  void MakeRoot();

  std::shared_ptr<Source> source;
  std::shared_ptr<ConfigTable> root;
  bool parsed = false;
};

// The names that a choice accepts, each with its value.
template <typename Value>
using ConfigChoices = std::vector<std::pair<std::string_view, Value>>;

// A view of one table, or of a table that the file does not have, in which every key is absent. Copies share their
// state. A getter returns its default if the key is absent; if the value has the wrong type or is out of range, it
// reports that and returns the default too. A "Required" getter reports an absent key and returns an empty value, or
// the minimum for a number. Reading a key marks it as known.
class ConfigTable {
 public:
  static constexpr std::int64_t kMinInteger = std::numeric_limits<std::int64_t>::min();
  static constexpr std::int64_t kMaxInteger = std::numeric_limits<std::int64_t>::max();
  static constexpr double kMaxNumber = std::numeric_limits<double>::max();

  // Whether the file has this table.
  bool Present() const;
  // Whether the file has the key here, with a value of any type.
  bool Has(std::string_view key) const;
  // The file that the table comes from.
  const boost::filesystem::path& File() const;
  // The line on which the table begins, from 1; that of the nearest enclosing table if the file does not have this one.
  std::uint32_t Line() const;

  bool Boolean(std::string_view key, bool defaultValue) const;
  std::int64_t Integer(std::string_view key, std::int64_t defaultValue, std::int64_t min = kMinInteger,
                       std::int64_t max = kMaxInteger) const;
  std::int64_t RequiredInteger(std::string_view key, std::int64_t min = kMinInteger,
                               std::int64_t max = kMaxInteger) const;
  // An integer from 0 to 2^32 - 1.
  std::uint32_t Unsigned(std::string_view key, std::uint32_t defaultValue, std::uint32_t min = 0,
                         std::uint32_t max = std::numeric_limits<std::uint32_t>::max()) const;
  std::uint32_t RequiredUnsigned(std::string_view key, std::uint32_t min = 0,
                                 std::uint32_t max = std::numeric_limits<std::uint32_t>::max()) const;
  // Also accepts integers.
  double Number(std::string_view key, double defaultValue, double min = -kMaxNumber, double max = kMaxNumber) const;
  std::string Text(std::string_view key, std::string defaultValue) const;
  // Also reports an empty string.
  std::string RequiredText(std::string_view key) const;
  std::vector<std::string> Texts(std::string_view key) const;
  std::vector<std::int64_t> Integers(std::string_view key, std::int64_t min = kMinInteger,
                                     std::int64_t max = kMaxInteger) const;

  // A string from a list of names.
  template <typename Value>
  Value Choice(std::string_view key, Value defaultValue, const ConfigChoices<Value>& choices) const {
    std::vector<std::string_view> names;
    for (const auto& choice : choices) names.push_back(choice.first);
    const std::optional<std::size_t> index = ChoiceIndex(key, names);
    return index ? choices[*index].second : defaultValue;
  }

  // Paths: replaces "${NAME}" with the environment variable (an error if it is not set) and
  // "${FENLUX_HOST_PROGRAM}" with the running program's path. A relative path starts at the directory of the file. An
  // absent key gives an empty path.
  boost::filesystem::path Path(std::string_view key) const;
  boost::filesystem::path RequiredPath(std::string_view key) const;
  std::vector<boost::filesystem::path> Paths(std::string_view key) const;
  // A string with variables replaced as in paths.
  std::string ExpandedText(std::string_view key, std::string defaultValue) const;

  // The table with that name; an empty one if it is absent.
  ConfigTable Table(std::string_view key) const;
  // The tables of the array with that name, in file order; empty if it is absent.
  std::vector<ConfigTable> Tables(std::string_view key) const;
  // All keys of the table in alphabetical order, for tables whose keys the user chooses.
  std::vector<std::string> Keys() const;

  // Reports a problem that only the caller can detect, at the position of the key's value, or of the table if the key
  // is absent or empty.
  void Report(std::string_view key, std::string reason) const;
  // Warns likewise about something valid that is probably a mistake.
  void Warn(std::string_view key, std::string reason) const;
  // Reports all unknown keys of this table and of the tables obtained from it. May be called again.
  void Finish() const;

 private:
  friend class ConfigDocument;
  struct Node;

  explicit ConfigTable(std::shared_ptr<Node> node) : view(std::move(node)) {}
  std::optional<std::size_t> ChoiceIndex(std::string_view key, const std::vector<std::string_view>& names) const;

  std::shared_ptr<Node> view;
};

}  // namespace fenlux::refhost
