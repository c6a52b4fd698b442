// Reads the [driver] table and rejects settings that apply only to the other driver.
#include "refhost/port/driver_settings.h"

#include <fmt/format.h>

#include "refhost/base/config/config_limits.h"
#include "refhost/base/config/config_reader.h"

namespace fenlux::refhost {
namespace {

constexpr std::uint32_t kMaxBuffers = 256;

}  // namespace

DriverSettings ReadDriverSettings(const ConfigTable& table) {
  DriverSettings settings;
  settings.port = table.Choice("port", settings.port,
                               ConfigChoices<DriverPortKind>{{"emulator", DriverPortKind::kEmulator},
                                                             {"filter-manager", DriverPortKind::kFilterManager}});
  settings.filter.filterLibrary = table.Path("filter_library");
  settings.filter.threads = table.Unsigned("threads", settings.filter.threads, 1, kMaxThreads);
  settings.filter.buffers = table.Unsigned("buffers", 2 * settings.filter.threads, 1, kMaxBuffers);
  if (settings.port == DriverPortKind::kEmulator) {
    for (const char* key : {"filter_library", "threads", "buffers"}) {
      if (table.Has(key)) table.Report(key, "requires port = \"filter-manager\"");
    }
  } else if (!FilterPortExists()) {
    table.Report("port", "the Filter Manager exists on Windows only; set port = \"emulator\"");
  }
  if (settings.filter.buffers < settings.filter.threads) {
    table.Report("buffers", fmt::format("must be at least threads, which is {}", settings.filter.threads));
  }
  return settings;
}

}  // namespace fenlux::refhost
