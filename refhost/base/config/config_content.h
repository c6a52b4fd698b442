// The values of a configuration file at the time it was read, for comparison with a later version.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "refhost/base/config/config_reader.h"

namespace fenlux::refhost {

// Immutable; copies share their state. Any thread.
class ConfigContent {
 public:
  struct Change {
    std::string key;         // the full name
    std::uint32_t line = 1;  // in the newer version, or in the older one if the newer one lacks the setting
  };

  // The content of an empty file.
  ConfigContent() = default;
  explicit ConfigContent(const ConfigDocument& document);

  // The settings whose values differ in `newer`, or that only one of the two has, in alphabetical order.
  std::vector<Change> ChangesIn(const ConfigContent& newer) const;

 private:
  std::shared_ptr<const ConfigDocument::Source> source;
};

}  // namespace fenlux::refhost
