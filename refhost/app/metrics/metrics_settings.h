// The [metrics] table: where the host serves its metrics.
#pragma once

#include <cstdint>
#include <string>

namespace fenlux::refhost {

class ConfigTable;

struct MetricsSettings {
  std::string address;     // numeric; empty: no metrics are served
  std::uint16_t port = 0;  // 0: any free port

  bool operator==(const MetricsSettings&) const = default;
};

// Reports an address that other machines can reach, unless `allow_remote` is true.
MetricsSettings ReadMetricsSettings(const ConfigTable& table);

}  // namespace fenlux::refhost
