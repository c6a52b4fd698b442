// Readable names for the protocol's numbers: commands, notification codes and verdicts.
#pragma once

#include <cstdint>
#include <string_view>

namespace fenlux::capture {

// Each returns "unknown" for a number that the protocol does not define. The Wireshark dissector uses the same names.
std::string_view CommandName(std::uint32_t command);
std::string_view CodeName(std::uint32_t code);
std::string_view VerdictName(std::uint32_t verdict);

}  // namespace fenlux::capture
