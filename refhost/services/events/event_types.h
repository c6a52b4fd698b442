// The event types of records, by the notification codes they come from.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

namespace fenlux::refhost {

// One kind of record. Category 0 means both.
struct EventKind {
  std::uint32_t type = 0;
  std::uint32_t category = 0;

  bool operator==(const EventKind&) const = default;
};

// The kinds of record that the module makes from a notification code; none if it does not judge that code. Two codes
// may give the same kind: their records are indistinguishable.
std::vector<EventKind> EventKindsOfCode(std::uint32_t code);

// The kind that the module makes of a code's plain form, in which the driver sets no flag; nothing if it does not judge
// that code.
std::optional<EventKind> PlainKindOfCode(std::uint32_t code);
// The lowest code whose events have the name; nothing if there is no such name.
std::optional<std::uint32_t> CodeOfName(std::string_view name);

// The kinds that a name means, and all names.
std::vector<EventKind> EventKindsOfName(std::string_view name);
std::vector<std::string_view> EventNames();
// The name of a record's kind; empty if it has none.
std::string_view EventName(const EventKind& kind);

}  // namespace fenlux::refhost
