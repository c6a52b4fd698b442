// The commands of the module to the driver: what each requires and what it changes.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>

#include "kdi/driver_records.h"
#include "refhost/emulator/emulator_state.h"

namespace fenlux::refhost {

// What the commands read and change.
struct DriverData {
  EmulatorState state;
  std::array<std::optional<NetControlItems>, 3> openLists;  // the item lists between their begin and their end
};

struct CommandRow {
  records::Command command;
  const char* name;  // for messages
  // Takes a whole request. Returns what is wrong with it, or carries it out and returns an empty text.
  std::string (*effect)(DriverData& data, const std::uint8_t* request);
};

// Null if the driver does not know the command.
const CommandRow* FindCommand(std::uint32_t command);

}  // namespace fenlux::refhost
