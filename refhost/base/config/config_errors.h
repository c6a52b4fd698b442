// The problems found in configuration files, each with its position.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace fenlux::refhost {

// An error, or a warning about something valid that is probably a mistake. `line` and `column` count from 1.
struct ConfigError {
  std::string file;
  std::uint32_t line = 1;
  std::uint32_t column = 1;
  std::string key;
  std::string reason;
  bool isWarning = false;

  // "file:line:column: key: reason", or for a warning "file:line:column: key: warning: reason"
  std::string Text() const;
};

// The problems of one or several files. Not thread-safe.
class ConfigErrors {
 public:
  void Add(ConfigError error);
  // Whether there is no error. Warnings do not count.
  bool Empty() const { return errors.size() == WarningCount(); }
  std::size_t WarningCount() const;
  // Errors and warnings, ordered by file (in the order in which files first had one), then by position.
  std::vector<ConfigError> Sorted() const;
  // One line per error or warning, each ending with a line feed.
  std::string Text() const;

 private:
  std::vector<ConfigError> errors;
};

}  // namespace fenlux::refhost
