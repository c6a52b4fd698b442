// Counts the heap allocations of the calling thread.
#pragma once

#include <cstdint>

namespace fenlux::bench {

// Since the thread began.
std::uint64_t AllocationsOfThisThread();

}  // namespace fenlux::bench
