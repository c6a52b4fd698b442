// Compares a message of a replay with the recorded one, ignoring the bytes that a record does not define, such as
// padding.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "refhost/capture/format/packet.h"

namespace fenlux::capture {

// Which parts of a request are compared. A capture may lack the data that some of them depend on.
struct ComparisonRules {
  bool requestContents = true;  // false: only the command, and that the request is well-formed
  bool rootNames = true;        // of monitored paths; they depend on the system's path rules
};

// A field that differs, with both values as JSON.
struct FieldDifference {
  std::string name;
  std::string recorded;
  std::string replayed;
};

// Up to 16 bytes that differ, as hexadecimal digits.
struct ByteDifference {
  std::size_t offset = 0;
  std::string recorded;
  std::string replayed;
};

struct MessageDifference {
  std::vector<FieldDifference> fields;
  std::vector<ByteDifference> bytes;  // the first rows that differ
};

// Compares two whole messages of a kind that the module sends: a connect context, a request, or the reply to a
// notification. Nullopt if they are equal in every byte that counts. Any thread.
std::optional<MessageDifference> CompareMessages(Kind kind, std::span<const std::uint8_t> recorded,
                                                 std::span<const std::uint8_t> replayed, const ComparisonRules& rules);

}  // namespace fenlux::capture
