// Errors of the program itself, as text for people or as JSON for programs.
#pragma once

#include <string>

#include "refhost/base/config/config_errors.h"

namespace fenlux::refhost {

inline constexpr char kOutOfMemory[] = "out of memory";

// Formats the text as one or more lines. As JSON, one object per line with "severity" and "text", like the log. Every
// line includes its line end, and is escaped like all output.
std::string ProblemLines(const std::string& text, bool json);
// One line for each error or warning. In JSON, "file", "line", "column", "key" and "reason" repeat its parts.
std::string ProblemLines(const ConfigErrors& errors, bool json);

// Why writing to standard output failed: "standard output cannot be written: ..." with the system's reason. Call it
// directly after the failure, before anything changes the system's error.
std::string OutputFailure();

}  // namespace fenlux::refhost
