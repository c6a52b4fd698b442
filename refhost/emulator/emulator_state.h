// The driver's state: everything the module sent over the current connection (or over the previous one if there is no
// current one), and the protocol violations over all connections.
#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "kdi/drvx_control.h"

namespace fenlux::refhost {

struct MonitoredObject {
  std::string path;      // UTF-8
  std::string rootName;  // UTF-8, as the request carries it
  bool pathFlag = false;

  bool operator==(const MonitoredObject&) const = default;
};

// The monitored objects of one type: those added since the last commit, and those the last commit put into effect.
struct MonitoredSet {
  std::vector<MonitoredObject> pending;
  std::vector<MonitoredObject> committed;
  std::uint32_t commits = 0;
};

struct EmulatorState {
  bool connected = false;
  std::uint64_t connects = 0;                                             // connections opened so far
  std::uint64_t refusedConnects = 0;                                      // attempts that the emulator refused
  std::optional<std::chrono::system_clock::time_point> connectionOpened;  // the current or the last connection
  std::optional<std::chrono::system_clock::time_point> connectionEnded;   // the last connection that ended
  std::string endReason;                                                  // why it ended
  std::string refusalReason;                                              // of the last attempt that was refused
  std::uint32_t clientType = 0;                                           // 0 before the first connection
  std::uint32_t portValue = 0;

  std::map<std::uint32_t, std::uint64_t> requests;          // by command code, of this connection
  std::array<MonitoredSet, 3> monitored;                    // of object types 1, 2 and 3
  std::uint32_t netControlMode = 0;                         // 0: not set
  std::array<NetControlItems, 3> netControlItems;           // lists 1, 2 and 3, as last completed
  std::optional<bool> grpmSwitch;                           // command 4
  std::optional<bool> grspSwitch;                           // command 6
  std::optional<std::uint32_t> grdtoValue;                  // command 8
  std::optional<bool> grharaOff;                            // command 9
  std::optional<std::array<std::uint8_t, 4>> spspSwitches;  // command 12
  std::map<std::uint32_t, std::uint64_t> systemProcesses;   // process id by kind
  std::optional<std::vector<std::uint8_t>> configBlock;     // command 24, without trailing zeros
  std::uint32_t dumps = 0;
  std::uint32_t versionsAsked = 0;

  // Over all connections.
  std::uint64_t protocolViolations = 0;
  std::vector<std::string> violationTexts;  // the first ones, at most kMaxViolationTexts
};

inline constexpr std::size_t kMaxViolationTexts = 100;

}  // namespace fenlux::refhost
