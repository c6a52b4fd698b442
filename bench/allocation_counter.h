// Counts the heap allocations of the calling thread.
#pragma once

#include <cstdint>

namespace fenlux::bench {

// Returns the number of allocations since the thread started.
std::uint64_t AllocationsOfThisThread();

}  // namespace fenlux::bench
