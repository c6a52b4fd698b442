// Changes of the environment through the system's wide functions.
#include <windows.h>

#include "refhost/base/text/utf_text.h"
#include "tests/unit/refhost/set_environment.h"

namespace fenlux::testing {

void SetEnvironmentText(const std::string& name, const std::string& value) {
  ::SetEnvironmentVariableW(refhost::WideFromNarrow(name).c_str(), refhost::WideFromNarrow(value).c_str());
}
void UnsetEnvironmentText(const std::string& name) {
  ::SetEnvironmentVariableW(refhost::WideFromNarrow(name).c_str(), nullptr);
}

}  // namespace fenlux::testing
