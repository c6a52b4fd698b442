// Changes of this process's environment, for tests. The bodies are platform-specific.
#pragma once

#include <string>

namespace fenlux::testing {

void SetEnvironmentText(const std::string& name, const std::string& value);
void UnsetEnvironmentText(const std::string& name);

}  // namespace fenlux::testing
