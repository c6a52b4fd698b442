// There is no Filter Manager here: the configuration is refused before anybody gets this far.
#include "refhost/port/filter_port_client.h"

#include <stdexcept>

namespace fenlux::refhost {

class FilterPort::Impl {};

bool FilterPortExists() { return false; }

FilterPort::FilterPort(const FilterPortSettings&, LogHook) {
  throw std::runtime_error("the Filter Manager exists on Windows only");
}
FilterPort::~FilterPort() = default;
std::shared_ptr<CPortClient> FilterPort::MakePortClient(const std::string&, const std::shared_ptr<CBuf>&, std::uint32_t,
                                                        NotificationHandler, std::uint32_t) {
  return nullptr;
}
void FilterPort::Stop() {}
FilterPortTotals FilterPort::Totals() const { return {}; }

}  // namespace fenlux::refhost
