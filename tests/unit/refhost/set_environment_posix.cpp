// Changes of the environment through setenv and unsetenv.
#include <cstdlib>

#include "tests/unit/refhost/set_environment.h"

namespace fenlux::testing {

void SetEnvironmentText(const std::string& name, const std::string& value) { ::setenv(name.c_str(), value.c_str(), 1); }
void UnsetEnvironmentText(const std::string& name) { ::unsetenv(name.c_str()); }

}  // namespace fenlux::testing
