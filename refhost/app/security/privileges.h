// Gives up what a host does not need, so that a flaw in it is worth less to an attacker.
#pragma once

namespace fenlux::refhost {

// Keeps only the capabilities that the host needs, for good: also programs it might run get no others. Forbids tracing
// by processes of the same user, and core files, except in sanitizer builds. Call it before starting any thread,
// because capabilities belong to a thread, and after opening what needs the privileges of the start. Throws
// std::runtime_error. Does nothing on Windows.
void LimitPrivileges(bool receivesKernelEvents);

}  // namespace fenlux::refhost
