// There are no metrics on Windows: their libraries are not built for it.
#include <stdexcept>

#include "refhost/app/metrics/host_metrics.h"

namespace fenlux::refhost {

std::string MetricsText(const StatusFacts& /*facts*/) {
  throw std::runtime_error("metrics are available on Linux only");
}

}  // namespace fenlux::refhost
