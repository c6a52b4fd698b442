// Messages that a scenario delivers unchanged: raw bytes, or a notification from a capture.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

namespace fenlux::refhost {

class ConfigTable;

struct ScenarioMessage {
  std::vector<std::uint8_t> bytes;
  std::optional<std::uint32_t> verdict;  // from the capture; 0: no reply
};

// Both report what is wrong with the step's keys and then return an empty message.

// Reads `raw_hex`.
ScenarioMessage ReadRawMessage(const ConfigTable& table);
// Reads `from_capture`, a file, and `exchange`.
ScenarioMessage ReadCapturedMessage(const ConfigTable& table);

}  // namespace fenlux::refhost
