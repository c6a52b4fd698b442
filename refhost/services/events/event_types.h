// The event types that the module gives to records, by the notification codes that they come from.
#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

namespace fenlux::refhost {

// One kind of record; category 0 stands for both.
struct EventKind {
  std::uint32_t type = 0;
  std::uint32_t category = 0;

  bool operator==(const EventKind&) const = default;
};

// The kinds that the module makes of a notification code; none where it judges no such code. Two codes may give the
// same kind: a record does not tell them apart.
std::vector<EventKind> EventKindsOfCode(std::uint32_t code);

// The kinds that a name stands for, and all the names.
std::vector<EventKind> EventKindsOfName(std::string_view name);
std::vector<std::string_view> EventNames();

}  // namespace fenlux::refhost
