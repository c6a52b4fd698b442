// Default refresh intervals, a different one for each host of the process.
#include "tests/support/fake_host/host_core.h"

namespace fenlux::testing {

std::uint32_t OwnRefreshInterval() {
  static std::atomic<std::uint32_t> next{3'600'000};
  return next++;
}

}  // namespace fenlux::testing
