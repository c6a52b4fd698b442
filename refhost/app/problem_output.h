// Errors of the program itself, as text for people or as JSON for programs.
#pragma once

#include <string>

#include "refhost/base/config/config_errors.h"

namespace fenlux::refhost {

inline constexpr char kOutOfMemory[] = "out of memory";

// One line, or several. As JSON one object per line, like those of the log: "severity" and "text". Every line has its
// line end, and is escaped as all output is.
std::string ProblemLines(const std::string& text, bool json);
// One line for each error or warning. In JSON, "file", "line", "column", "key" and "reason" repeat its parts.
std::string ProblemLines(const ConfigErrors& errors, bool json);

// Why standard output takes no more, after a failed write: "standard output cannot be written: ..." with the system's
// reason. Call it directly after the failure.
std::string OutputFailure();

}  // namespace fenlux::refhost
