// Severities of log lines.
#pragma once

#include <cstddef>

namespace fenlux::refhost {

// In ascending order, one per operation of the host's log.
enum class Severity : std::size_t { kDetail, kEvent, kNotice, kWarning, kProblem, kAlert };
inline constexpr std::size_t kSeverities = 6;

}  // namespace fenlux::refhost
