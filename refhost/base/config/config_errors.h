// The problems found in configuration files, each with its place.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace fenlux::refhost {

// One problem. `line` and `column` count from 1.
struct ConfigError {
  std::string file;
  std::uint32_t line = 1;
  std::uint32_t column = 1;
  std::string key;
  std::string reason;

  // "file:line:column: key: reason"
  std::string Text() const;
};

// The problems of one or several files. Not thread-safe.
class ConfigErrors {
 public:
  void Add(ConfigError error);
  bool Empty() const { return errors.empty(); }
  // Ordered by file, in the order in which files first had an error, then by place.
  std::vector<ConfigError> Sorted() const;
  // One line per error, each with a line end.
  std::string Text() const;

 private:
  std::vector<ConfigError> errors;
};

}  // namespace fenlux::refhost
