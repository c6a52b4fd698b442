// Reads the environment with getenv, and assumes that it is UTF-8.
#include "refhost/base/platform/environment.h"

#include <cstdlib>

namespace fenlux::refhost {

std::optional<std::string> EnvironmentText(const std::string& name) {
  // The caller guarantees that no thread changes the environment.
  const char* const value = std::getenv(name.c_str());  // NOLINT(concurrency-mt-unsafe)
  if (value == nullptr) return std::nullopt;
  return value;
}

}  // namespace fenlux::refhost
