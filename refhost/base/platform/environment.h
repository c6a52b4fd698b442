// The process's environment in UTF-8. The implementations are platform-specific.
#pragma once

#include <optional>
#include <string>

namespace fenlux::refhost {

// Nullopt if the variable is not set. Any thread, as long as no thread changes the environment.
std::optional<std::string> EnvironmentText(const std::string& name);

}  // namespace fenlux::refhost
