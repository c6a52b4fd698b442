// Pins benchmarks to processor cores.
#pragma once

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <sched.h>

#include <stdexcept>
#include <vector>

#include "refhost/base/platform/error_text.h"

namespace fenlux::bench {

// From now on the calling thread, and every thread and process that it starts, runs on these cores only.
inline void RunOn(const std::vector<int>& cores) {
  cpu_set_t set;
  CPU_ZERO(&set);
  for (const int core : cores) CPU_SET(static_cast<unsigned>(core), &set);
  if (::sched_setaffinity(0, sizeof(set), &set) != 0) {
    throw std::runtime_error(
        fmt::format("cannot run on core {}: {}", fmt::join(cores, ", "), refhost::LastErrorText()));
  }
}

}  // namespace fenlux::bench
