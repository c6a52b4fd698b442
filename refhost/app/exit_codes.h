// The program's exit codes.
#pragma once

namespace fenlux::refhost {

inline constexpr int kExitSuccess = 0;
inline constexpr int kExitRefused = 1;  // ctl: the host or its module refused the operation
inline constexpr int kExitOutput = 1;   // the result, or a run's summary, could not be written
inline constexpr int kExitUsage = 2;    // bad usage or configuration
inline constexpr int kExitModule =
    3;  // run, drive, replay: the module could not be loaded, or its init or start failed
inline constexpr int kExitUnreachable = 3;   // ctl: no host reachable
inline constexpr int kExitViolation = 4;     // run: a protocol violation, totals that do not add up, or no connection
inline constexpr int kExitDifferent = 4;     // replay: the module did something different from the capture
inline constexpr int kExitFaults = 4;        // drive: the driver did something wrong
inline constexpr int kExitNoMemory = 5;      // out of memory
inline constexpr int kExitDegraded = 6;      // ctl health: the host does not work as it should
inline constexpr int kExitNotReachable = 7;  // ctl health: no host reachable

}  // namespace fenlux::refhost
