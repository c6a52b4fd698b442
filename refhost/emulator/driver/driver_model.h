// What the driver knows and how requests change it: a table of commands, each with its check and its effect.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "refhost/emulator/emulator_state.h"

namespace fenlux::refhost {

// Not thread-safe; the caller holds its lock.
class DriverModel {
 public:
  // A new connection: the driver has forgotten what it was told over the last one.
  void Open(std::uint32_t clientType, std::uint32_t portValue);
  void Close() { state.connected = false; }

  // What a request changed.
  struct Effect {
    std::string violation;             // empty where the request keeps to the protocol; otherwise it changed nothing
    std::uint32_t command = 0;         // 0 where the request is not one
    bool monitoredSetChanged = false;  // of types 1 and 2
  };
  // Checks a request and carries it out.
  Effect Take(const std::uint8_t* request, std::size_t size);

  // Notes a breach of the protocol that is not a request's.
  void AddViolation(std::string text);
  void CountRefusedConnect() { ++state.refusedConnects; }

  const EmulatorState& State() const { return state; }
  // The committed paths of types 1 and 2 while a connection is open.
  std::vector<std::string> MonitoredPaths() const;

 private:
  friend struct CommandEffects;

  EmulatorState state;
  std::array<std::optional<NetControlItems>, 3> loading;  // the item list between its begin and its end
};

// The command's name for messages; empty for one that the driver does not know.
std::string CommandName(std::uint32_t command);

}  // namespace fenlux::refhost
