// Drops privileges that a host does not need, so that a vulnerability in it is worth less to an attacker.
#pragma once

namespace fenlux::refhost {

// Permanently drops all capabilities that the host does not need, also for programs that it might run. Forbids tracing
// by processes of the same user, and core files, except in sanitizer builds. Call it before starting any thread,
// because capabilities belong to a thread, and after opening everything that needs the initial privileges. Throws
// std::runtime_error. Does nothing on Windows.
void LimitPrivileges(bool receivesKernelEvents);

}  // namespace fenlux::refhost
