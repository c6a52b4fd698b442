// There are no metrics on Windows: their libraries are not built for it.
#include "refhost/app/metrics/metrics_server.h"

#include <stdexcept>
#include <utility>

namespace fenlux::refhost {

bool MetricsExist() { return false; }

class MetricsServer::Body {};

MetricsServer::MetricsServer(const MetricsSettings& /*settings*/) {
  throw std::runtime_error("metrics are available on Linux only");
}
MetricsServer::~MetricsServer() = default;
void MetricsServer::Start(std::function<std::string()> /*text*/) {}
void MetricsServer::Stop() {}
std::string MetricsServer::Url() const { return {}; }

}  // namespace fenlux::refhost
