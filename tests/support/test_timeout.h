// The timeout of every wait in a test.
#pragma once

#include <chrono>

namespace fenlux::testing {

// Generous: expires only if the test fails or the machine is badly overloaded.
inline constexpr std::chrono::seconds kTestTimeout{60};

}  // namespace fenlux::testing
