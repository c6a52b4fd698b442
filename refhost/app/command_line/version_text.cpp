// The build passes its type, compiler and target.
#include "refhost/app/command_line/version_text.h"

#include <fmt/format.h>

#include "fenlux/version.h"

namespace fenlux::refhost {

std::string VersionText() {
  return fmt::format("fenlux-host {}\nmodule interface {}, module version {}\nbuild: {}", kPackageVersionText,
                     kInterfaceVersion, kModuleVersion, FENLUX_BUILD_TEXT);
}

}  // namespace fenlux::refhost
