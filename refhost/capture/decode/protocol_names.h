// Names of the protocol's numbers for people: commands, notification codes and verdicts.
#pragma once

#include <cstdint>
#include <string_view>

namespace fenlux::capture {

// Each is "unknown" for a number that the protocol does not have. The dissector for Wireshark uses the same names.
std::string_view CommandName(std::uint32_t command);
std::string_view CodeName(std::uint32_t code);
std::string_view VerdictName(std::uint32_t verdict);

}  // namespace fenlux::capture
