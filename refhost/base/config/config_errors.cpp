// Orders and formats configuration errors.
#include "refhost/base/config/config_errors.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <tuple>
#include <utility>

namespace fenlux::refhost {

std::string ConfigError::Text() const {
  return fmt::format("{}:{}:{}: {}: {}{}", file, line, column, key, isWarning ? "warning: " : "", reason);
}

void ConfigErrors::Add(ConfigError error) { errors.push_back(std::move(error)); }

std::size_t ConfigErrors::WarningCount() const {
  return static_cast<std::size_t>(std::ranges::count(errors, true, &ConfigError::isWarning));
}

std::vector<ConfigError> ConfigErrors::Sorted() const {
  std::map<std::string, std::size_t> fileOrder;
  for (const ConfigError& error : errors) fileOrder.emplace(error.file, fileOrder.size());
  std::vector<ConfigError> sorted = errors;
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

}  // namespace fenlux::refhost
