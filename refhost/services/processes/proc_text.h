// Parses the texts that /proc shows for a process. The process controls most of them, so they may contain anything.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace fenlux::refhost {

// All functions: any thread.

// The number at the start of the text; nullopt if there is none, or if it has more than 32 bits.
std::optional<std::uint32_t> LeadingNumber(std::string_view text);
// The login session of /proc/PID/sessionid; 0 if the process has none.
std::uint32_t SessionFromText(std::string_view text);
// The arguments of /proc/PID/cmdline, separated by spaces.
std::string CommandLineFromText(std::string text);
// The effective user of the process, from /proc/PID/status; nullopt if the text has none.
std::optional<std::uint32_t> UserFromText(std::string_view text);

}  // namespace fenlux::refhost
