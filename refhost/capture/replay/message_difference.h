// Compares a message of a replay with the recorded one, without the bytes that a record leaves as the sender's buffer
// delivered them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "refhost/capture/format/packet.h"

namespace fenlux::capture {

// What counts in a request besides its form. Not everything does if the capture lacks what the request depends on.
struct ComparisonRules {
  bool requestContents = true;  // false: only the command, and that the request is well-formed
  bool rootNames = true;        // the root name of a monitored path, which depends on the system's rules for paths
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
// notification. nullopt if they are the same in every byte that counts. Any thread.
std::optional<MessageDifference> CompareMessages(Kind kind, std::span<const std::uint8_t> recorded,
                                                 std::span<const std::uint8_t> replayed, const ComparisonRules& rules);

}  // namespace fenlux::capture
