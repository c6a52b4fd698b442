// How long a test waits for something that is about to happen.
#pragma once

#include <chrono>

namespace fenlux::testing {

// Generous: reached only when the test fails, or on a machine that hardly runs.
inline constexpr std::chrono::seconds kTestTimeout{60};

}  // namespace fenlux::testing
