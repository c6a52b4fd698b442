// This system has no Filter Manager. The configuration is rejected before a FilterPort is created.
#include <stdexcept>

#include "refhost/port/filter_port_client.h"

namespace fenlux::refhost {

class FilterPort::Impl {};

bool FilterPortExists() { return false; }

// These parameters are unused here, but the Windows implementation stores them.
// NOLINTBEGIN(performance-unnecessary-value-param)
FilterPort::FilterPort(const FilterPortSettings&, LogHook) {
  throw std::runtime_error("the Filter Manager exists on Windows only");
}
FilterPort::~FilterPort() = default;
std::shared_ptr<CPortClient> FilterPort::MakePortClient(const std::string&, const std::shared_ptr<CBuf>&, std::uint32_t,
                                                        NotificationHandler, std::uint32_t) {
  return nullptr;
}
// NOLINTEND(performance-unnecessary-value-param)
void FilterPort::Stop() {}
FilterPortTotals FilterPort::Totals() const { return {}; }

}  // namespace fenlux::refhost
