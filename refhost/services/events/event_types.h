// Maps notification codes and event names to the event types of records.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

namespace fenlux::refhost {

// One kind of record. Category 0 means both categories.
struct EventKind {
  std::uint32_t type = 0;
  std::uint32_t category = 0;

  bool operator==(const EventKind&) const = default;
};

// The kinds of record that the module makes from a notification code; empty if it does not judge that code. Two codes
// may result in the same kind: their records are indistinguishable.
std::vector<EventKind> EventKindsOfCode(std::uint32_t code);

// The kind that the module makes from a code for which the driver sets no flag; nullopt if it does not judge that
// code.
std::optional<EventKind> PlainKindOfCode(std::uint32_t code);
// The lowest code whose events have the name; nullopt if there is no such name.
std::optional<std::uint32_t> CodeOfName(std::string_view name);

// The kinds that a name stands for, and all names.
std::vector<EventKind> EventKindsOfName(std::string_view name);
std::vector<std::string_view> EventNames();
// The name of a record's kind; empty if it has none.
std::string_view EventName(const EventKind& kind);

}  // namespace fenlux::refhost
