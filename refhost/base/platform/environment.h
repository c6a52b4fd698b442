// The process's environment, in UTF-8. The bodies are the platform's.
#pragma once

#include <optional>
#include <string>

namespace fenlux::refhost {

// Nothing where the variable is not set. Any thread, as long as none changes the environment.
std::optional<std::string> EnvironmentText(const std::string& name);

}  // namespace fenlux::refhost
