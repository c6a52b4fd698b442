// Reading of TOML files with full error reporting: every problem of a file is told with its place, not just the first.
//
// A reader asks a ConfigTable for the keys it knows, gets a usable value for each whatever the file says, and ends with
// Finish(), which reports the keys that nobody asked for. Nothing here throws for what a file contains.
#pragma once

#include <boost/filesystem/path.hpp>
#include <cstdint>
#include <limits>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace fenlux::refhost {

// One problem of a file. `line` and `column` count from 1.
struct ConfigError {
  std::string file;
  std::uint32_t line = 1;
  std::uint32_t column = 1;
  std::string key;
  std::string reason;

  // "file:line:column: key: reason"
  std::string Text() const;
};

// Everything that was found wrong, over one or several files. Not thread-safe.
class ConfigErrors {
 public:
  void Add(ConfigError error);
  bool Empty() const { return errors.empty(); }
  // In the order of files as they were met, then by place.
  std::vector<ConfigError> Sorted() const;
  // One line each, every one ended.
  std::string Text() const;

 private:
  std::vector<ConfigError> errors;
};

class ConfigTable;

// One parsed file. Tables taken from it stay usable as long as they are held; `errors` must outlive them.
class ConfigDocument {
 public:
  // Reads and parses `file`. A file that cannot be read or has a syntax error gives one error and an empty root table,
  // of which nothing is then reported.
  ConfigDocument(const boost::filesystem::path& file, ConfigErrors& errors);
  // The same for a text that is already in memory; `file` names it in errors and places its relative paths.
  ConfigDocument(std::string_view text, const boost::filesystem::path& file, ConfigErrors& errors);

  // Whether the file could be parsed.
  bool Parsed() const { return parsed; }
  // Always the same view.
  const ConfigTable& Root() const { return *root; }

  struct Source;

 private:
  void Parse(std::string_view text);
  void MakeRoot();

  std::shared_ptr<Source> source;
  std::shared_ptr<ConfigTable> root;
  bool parsed = false;
};

// The names that a choice knows, with what each stands for.
template <typename Value>
using ConfigChoices = std::vector<std::pair<std::string_view, Value>>;

// A view on one table of the file, or on a table that the file does not have: then every key is absent. Copies share
// what they know. A getter whose key is absent returns its default; one whose value has the wrong type or lies out of
// range reports that and returns the default too. "Required" ones report the absence and return an empty value (for
// numbers the least allowed one).
class ConfigTable {
 public:
  static constexpr std::int64_t kMinInteger = std::numeric_limits<std::int64_t>::min();
  static constexpr std::int64_t kMaxInteger = std::numeric_limits<std::int64_t>::max();
  static constexpr double kMaxNumber = std::numeric_limits<double>::max();

  // Whether the file has this table.
  bool Present() const;
  // Whether the file has the key here, of whatever type. Counts as asking for it.
  bool Has(std::string_view key) const;
  // The file that the table comes from.
  const boost::filesystem::path& File() const;

  bool Boolean(std::string_view key, bool standard) const;
  std::int64_t Integer(std::string_view key, std::int64_t standard, std::int64_t least = kMinInteger,
                       std::int64_t most = kMaxInteger) const;
  std::int64_t RequiredInteger(std::string_view key, std::int64_t least = kMinInteger,
                               std::int64_t most = kMaxInteger) const;
  // An Integer that is not negative and fits in 32 bits.
  std::uint32_t Unsigned(std::string_view key, std::uint32_t standard, std::uint32_t least = 0,
                         std::uint32_t most = std::numeric_limits<std::uint32_t>::max()) const;
  std::uint32_t RequiredUnsigned(std::string_view key, std::uint32_t least = 0,
                                 std::uint32_t most = std::numeric_limits<std::uint32_t>::max()) const;
  // Takes integers too.
  double Number(std::string_view key, double standard, double least = -kMaxNumber, double most = kMaxNumber) const;
  std::string Text(std::string_view key, std::string standard) const;
  // An empty text counts as absent.
  std::string RequiredText(std::string_view key) const;
  std::vector<std::string> Texts(std::string_view key) const;
  std::vector<std::int64_t> Integers(std::string_view key, std::int64_t least = kMinInteger,
                                     std::int64_t most = kMaxInteger) const;

  // A text out of a list of names.
  template <typename Value>
  Value Choice(std::string_view key, Value standard, const ConfigChoices<Value>& choices) const {
    std::vector<std::string_view> names;
    for (const auto& choice : choices) names.push_back(choice.first);
    const int index = ChoiceIndex(key, names);
    return index < 0 ? standard : choices[static_cast<std::size_t>(index)].second;
  }

  // Paths: "${NAME}" is replaced by the environment variable (an unset one is an error) and "${FENLUX_HOST_PROGRAM}" by
  // the running program's path; a relative path starts at the directory of the file. An absent key is an empty path.
  boost::filesystem::path Path(std::string_view key) const;
  boost::filesystem::path RequiredPath(std::string_view key) const;
  std::vector<boost::filesystem::path> Paths(std::string_view key) const;
  // A text with its "${NAME}" replaced, otherwise as it stands.
  std::string ExpandedText(std::string_view key, std::string standard) const;

  // The table of that name; one that is absent reads as empty.
  ConfigTable Table(std::string_view key) const;
  // The array of tables of that name, in the order of the file; empty where there is none.
  std::vector<ConfigTable> Tables(std::string_view key) const;
  // Every key of the table in alphabetical order, for tables whose keys are the user's own.
  std::vector<std::string> Keys() const;

  // Reports a problem that only the reader can see. It is placed at the key's value, or at the table where the key is
  // absent or empty.
  void Report(std::string_view key, std::string reason) const;
  // Reports every key of this table, and of the tables taken from it, that nobody asked for. May be called again.
  void Finish() const;

 private:
  friend class ConfigDocument;
  struct Node;

  explicit ConfigTable(std::shared_ptr<Node> tableNode) : view(std::move(tableNode)) {}
  int ChoiceIndex(std::string_view key, const std::vector<std::string_view>& names) const;

  std::shared_ptr<Node> view;
};

}  // namespace fenlux::refhost
