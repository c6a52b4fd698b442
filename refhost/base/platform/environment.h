// The process's environment in UTF-8. The bodies are platform-specific.
#pragma once

#include <optional>
#include <string>

namespace fenlux::refhost {

// nullopt if the variable is not set. Any thread, as long as none changes the environment.
std::optional<std::string> EnvironmentText(const std::string& name);

}  // namespace fenlux::refhost
