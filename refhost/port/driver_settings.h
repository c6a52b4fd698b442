// The [driver] table of the configuration: which driver the module connects to.
#pragma once

#include "refhost/port/filter_port_client.h"

namespace fenlux::refhost {

class ConfigTable;

enum class DriverPortKind { kEmulator, kFilterManager };

struct DriverSettings {
  DriverPortKind port = DriverPortKind::kEmulator;
  FilterPortSettings filter;

  bool operator==(const DriverSettings&) const = default;
};

// Reads the table and reports errors in it. The caller calls Finish.
DriverSettings ReadDriverSettings(const ConfigTable& table);

}  // namespace fenlux::refhost
