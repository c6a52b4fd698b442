// A Windows host keeps the rights of its user.
#include "refhost/app/security/privileges.h"

namespace fenlux::refhost {

void LimitPrivileges(bool /*receivesKernelEvents*/) {}

}  // namespace fenlux::refhost
