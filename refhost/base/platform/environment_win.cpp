// Reads the environment with the UTF-16 functions, because getenv returns text in the code page.
#include "refhost/base/platform/environment.h"

#include <windows.h>

#include "refhost/base/text/utf_text.h"

namespace fenlux::refhost {

std::optional<std::string> EnvironmentText(const std::string& name) {
  const std::wstring wideName = WideFromNarrow(name);
  std::wstring value(256, L'\0');
  for (;;) {
    ::SetLastError(ERROR_SUCCESS);
    const DWORD length = ::GetEnvironmentVariableW(wideName.c_str(), value.data(), static_cast<DWORD>(value.size()));
    if (length == 0 && ::GetLastError() == ERROR_ENVVAR_NOT_FOUND) return std::nullopt;
    if (length < value.size()) {
      value.resize(length);
      return NarrowFromWide(value);
    }
    value.resize(length);  // includes the terminating zero
  }
}

}  // namespace fenlux::refhost
