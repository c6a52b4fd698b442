// The tables of notification codes and event names.
#include "refhost/services/events/event_types.h"

#include <algorithm>
#include <array>
#include <span>

namespace fenlux::refhost {
namespace {

using Types = std::array<std::uint32_t, 6>;  // unused elements are 0

struct CodeRow {
  std::uint32_t code;
  std::uint32_t category;
  Types types;
  std::uint32_t plain = 0;  // the type if the driver sets no flag; 0: the first one
};

constexpr CodeRow kCodes[] = {
    {4097, 1, {0x4000, 0x4001, 0x4002, 0x4003, 0x401C, 0x401D}, 0x4002},
    {4098, 1, {0x4005}},
    {4099, 1, {0x4006}},
    {4100, 1, {0x4007}},
    {4101, 1, {0x4008, 0x4009}},
    {4102, 1, {0x400A}},
    {4103, 1, {0x400B}},
    {4104, 1, {0x400C}},
    {4105, 1, {0x400D}},
    {4106, 1, {0x400E}},
    {4107, 1, {0x400F}},
    {4108, 1, {0x4010}},
    {4109, 2, {0x4008, 0x4009, 0x4011}, 0x4011},
    {4110, 1, {0x4012}},
    {4111, 1, {0x4013}},
    {4112, 1, {0x4014}},
    {4113, 1, {0x4015}},
    {4114, 1, {0x1002}},
    {4116, 1, {0x4018}},
    {4117, 1, {0x401B}},
    {4118, 1, {0x401E}},
    {8193, 2, {0x4000, 0x4001, 0x4002, 0x4003, 0x401C, 0x401D}, 0x4002},
    {8194, 2, {0x4004}},
    {8195, 2, {0x4007}},
    {8196, 2, {0x4008, 0x4009}},
    {8197, 2, {0x400A}},
    {8198, 2, {0x400B}},
    {8199, 2, {0x400C}},
    {8200, 2, {0x400D}},
    {8201, 2, {0x400E}},
    {8202, 2, {0x400F}},
    {8203, 2, {0x4010}},
    {8204, 2, {0x4017}},
    {8205, 2, {0x4019}},
    {8206, 2, {0x401A}},
};

// Only the kinds that a record's data identifies. Rules refer to all other types by number or code.
struct NameRow {
  std::string_view name;
  std::uint32_t category;
  Types types;
};

constexpr NameRow kNames[] = {
    {"access", 0, {0x4000, 0x4001, 0x4002, 0x4003, 0x401C, 0x401D}},  // have the two access values
    {"endpoint", 0, {0x1002}},                                        // has an address and a port
    {"open", 2, {0x4004}},                                            // marked as opening
    {"remote", 0, {0x4018, 0x4019}},                                  // have the remote flag and four words
    {"unanswered", 1, {0x4015}},                                      // judged, but the driver expects no reply
};

std::vector<EventKind> Kinds(const Types& types, std::uint32_t category) {
  std::vector<EventKind> kinds;
  for (const std::uint32_t type : types) {
    if (type != 0) kinds.push_back({type, category});
  }
  return kinds;
}

}  // namespace

std::vector<EventKind> EventKindsOfCode(std::uint32_t code) {
  const auto row = std::ranges::find(kCodes, code, &CodeRow::code);
  return row == std::end(kCodes) ? std::vector<EventKind>() : Kinds(row->types, row->category);
}

std::optional<EventKind> PlainKindOfCode(std::uint32_t code) {
  const auto row = std::ranges::find(kCodes, code, &CodeRow::code);
  if (row == std::end(kCodes)) return std::nullopt;
  return EventKind{row->plain == 0 ? row->types.front() : row->plain, row->category};
}

std::optional<std::uint32_t> CodeOfName(std::string_view name) {
  if (name.empty()) return std::nullopt;
  for (const CodeRow& row : kCodes) {
    if (EventName({row.types.front(), row.category}) == name) return row.code;
  }
  return std::nullopt;
}

std::vector<EventKind> EventKindsOfName(std::string_view name) {
  const auto row = std::ranges::find(kNames, name, &NameRow::name);
  return row == std::end(kNames) ? std::vector<EventKind>() : Kinds(row->types, row->category);
}

std::string_view EventName(const EventKind& kind) {
  const auto names = [&kind](const NameRow& row) {
    return (row.category == 0 || row.category == kind.category) &&
           std::ranges::find(row.types, kind.type) != row.types.end();
  };
  const auto row = std::ranges::find_if(kNames, names);
  return row == std::end(kNames) || kind.type == 0 ? std::string_view() : row->name;
}

std::vector<std::string_view> EventNames() {
  std::vector<std::string_view> names;
  for (const NameRow& row : kNames) names.push_back(row.name);
  return names;
}

}  // namespace fenlux::refhost
