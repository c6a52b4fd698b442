// The commands of the module to the driver: what each requires and what it changes.
#pragma once

#include <array>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string>
#include <type_traits>

#include "kdi/driver_records.h"
#include "refhost/emulator/emulator_state.h"

namespace fenlux::refhost {

// The state that the commands read and change.
struct DriverData {
  EmulatorState state;
  std::array<std::optional<NetControlItems>, 3> openLists;  // the item lists between their begin and their end
};

struct CommandRow {
  records::Command command;
  const char* name;  // for messages
  // Gets a whole request. Returns what is wrong with it, or carries it out and returns an empty string.
  std::string (*effect)(DriverData& data, const std::uint8_t* request);
};

// Copies a record from the start of a request, which must be large enough for it.
template <typename Record>
Record ReadRequest(const std::uint8_t* request) {
  static_assert(std::is_trivially_copyable_v<Record> && sizeof(Record) <= records::kRequestSize);
  Record record;
  std::memcpy(&record, request, sizeof(record));
  return record;
}

// Null if the driver has no such command.
const CommandRow* FindCommand(std::uint32_t command);

}  // namespace fenlux::refhost
