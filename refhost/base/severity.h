// How severe a log line is.
#pragma once

#include <cstddef>

namespace fenlux::refhost {

// From the least to the most severe, one for each operation of the host's log.
enum class Severity : std::size_t { kDetail, kEvent, kNotice, kWarning, kProblem, kAlert };
inline constexpr std::size_t kSeverities = 6;

}  // namespace fenlux::refhost
