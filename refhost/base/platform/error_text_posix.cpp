// Error messages for errno.
#include <cerrno>
#include <system_error>

#include "refhost/base/platform/error_text.h"

namespace fenlux::refhost {

std::string SystemErrorText(std::int64_t code) { return std::generic_category().message(static_cast<int>(code)); }

std::string LastErrorText() { return SystemErrorText(errno); }

}  // namespace fenlux::refhost
