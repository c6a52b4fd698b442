// A Windows host runs with the rights of its user; it has no driver of its own to talk to.
#include "refhost/app/security/privileges.h"

namespace fenlux::refhost {

void LimitPrivileges(bool /*receivesKernelEvents*/) {}

}  // namespace fenlux::refhost
