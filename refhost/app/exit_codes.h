// What the program's exit codes mean.
#pragma once

namespace fenlux::refhost {

inline constexpr int kExitFine = 0;
inline constexpr int kExitRefused = 1;      // ctl: the host or its module refused the operation
inline constexpr int kExitUsage = 2;        // bad usage or configuration
inline constexpr int kExitModule = 3;       // run: the module could not be loaded, or its init or start failed
inline constexpr int kExitUnreachable = 3;  // ctl: no host could be reached
inline constexpr int kExitViolation = 4;    // run: a protocol violation, or totals that do not add up

}  // namespace fenlux::refhost
